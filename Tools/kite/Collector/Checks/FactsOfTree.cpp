#include "Collector/Checks/FactsOfTree.h"

namespace kite::tool {
namespace {

namespace dom = simdjson::dom;

std::optional<std::string> textUnder(const dom::object& object, std::string_view key) {
  std::string_view value;
  if (object.at_key(key).get(value) != simdjson::SUCCESS) return std::nullopt;
  return std::string(value);
}

bool flagUnder(const dom::object& object, std::string_view key) {
  bool value = false;
  return object.at_key(key).get(value) == simdjson::SUCCESS && value;
}

double numberUnder(const dom::object& object, std::string_view key) {
  double value = 0;
  return object.at_key(key).get(value) == simdjson::SUCCESS ? value : 0;
}

EventFacts sessionFacts(std::string_view id, const dom::object& data) {
  EventFacts facts{.name = textUnder(data, "subtype")};
  facts.isSessionStart = facts.name == "session_start";
  facts.isSessionEnd = facts.name == "session_end";
  if (facts.isSessionStart) facts.session = id;
  if (facts.isSessionEnd) facts.session = textUnder(data, "session_start_id");
  facts.hasCrashed = flagUnder(data, "crashed");
  facts.duration = numberUnder(data, "duration");
  return facts;
}

EventFacts actionFacts(const dom::object& data) {
  return {.name = textUnder(data, "action_kind"),
          .session = textUnder(data, "session_id"),
          .lastForegroundSession = textUnder(data, "last_foreground_session_id"),
          .isInBackground = flagUnder(data, "is_background_event")};
}

}  // namespace

EventFacts factsOfTree(std::string_view id, std::string_view type, const dom::object& data) {
  if (type == "Session") return sessionFacts(id, data);
  if (type == "UserAction") return actionFacts(data);
  if (type == "DebugEvent") return {.name = textUnder(data, "message")};
  return {};
}

}  // namespace kite::tool
