#include "Collector/EventFacts.h"

#include "Collector/Checks/FactsOfTree.h"

namespace kite::tool {

EventFacts factsOf(std::string_view id, std::string_view type, std::string_view data) {
  if (type != "Session" && type != "UserAction" && type != "DebugEvent") return {};
  thread_local simdjson::dom::parser parser;
  thread_local std::string padded;
  padded.reserve(data.size() + simdjson::SIMDJSON_PADDING);  // or the parser takes memory for it
  padded = data;
  simdjson::dom::object object;
  if (parser.parse(padded).get(object) != simdjson::SUCCESS) return {};
  return factsOfTree(id, type, object);
}

std::string sessionToldOf(const EventFacts& facts) {
  if (facts.session) return *facts.session;
  if (facts.isInBackground && facts.lastForegroundSession) return *facts.lastForegroundSession;
  return "";
}

}  // namespace kite::tool
