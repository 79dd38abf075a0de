#include "Collector/Store/EventFacts.h"

#include "Collector/JSONText.h"

#include <simdjson.h>

#include <algorithm>

namespace kite::tool {
namespace {

namespace dom = simdjson::dom;

std::optional<std::string> text(const dom::object& object, std::string_view key) {
  std::string_view value;
  if (object.at_key(key).get(value) != simdjson::SUCCESS) return std::nullopt;
  return std::string(value);
}

bool flag(const dom::object& object, std::string_view key) {
  bool value = false;
  return object.at_key(key).get(value) == simdjson::SUCCESS && value;
}

double number(const dom::object& object, std::string_view key) {
  double value = 0;
  return object.at_key(key).get(value) == simdjson::SUCCESS ? value : 0;
}

EventFacts sessionFacts(std::string_view id, const dom::object& data) {
  EventFacts facts{.name = text(data, "subtype")};
  facts.isSessionStart = facts.name == "session_start";
  facts.isSessionEnd = facts.name == "session_end";
  if (facts.isSessionStart) facts.session = id;
  if (facts.isSessionEnd) facts.session = text(data, "session_start_id");
  facts.hasCrashed = flag(data, "crashed");
  facts.duration = number(data, "duration");
  return facts;
}

EventFacts actionFacts(const dom::object& data) {
  return {.name = text(data, "action_kind"),
          .session = text(data, "session_id"),
          .lastForegroundSession = text(data, "last_foreground_session_id"),
          .isInBackground = flag(data, "is_background_event")};
}

/// A run of events in the background lasts until the first one in the foreground.
void noteBackground(SessionRecord& session, double time, bool isInBackground) {
  if (isInBackground && !session.isInBackground) session.background.emplace_back(time, time);
  if (isInBackground || session.isInBackground) {
    session.background.back().second = std::max(session.background.back().second, time);
  }
  session.isInBackground = isInBackground;
}

}  // namespace

EventFacts factsOf(std::string_view id, std::string_view type, std::string_view data) {
  if (type != "Session" && type != "UserAction" && type != "DebugEvent") return {};
  thread_local dom::parser parser;
  thread_local std::string padded;
  padded.reserve(data.size() + simdjson::SIMDJSON_PADDING);  // or the parser takes memory for it
  padded = data;
  dom::object object;
  if (parser.parse(padded).get(object) != simdjson::SUCCESS) return {};
  if (type == "Session") return sessionFacts(id, object);
  if (type == "UserAction") return actionFacts(object);
  return {.name = text(object, "message")};
}

std::string sessionToldOf(const EventFacts& facts) {
  if (facts.session) return *facts.session;
  if (facts.isInBackground && facts.lastForegroundSession) return *facts.lastForegroundSession;
  return "";
}

void note(SessionRecord& session, std::string_view client, double time, const EventFacts& facts) {
  const bool isNew = session.id.empty();
  if (isNew) {
    session.id = sessionToldOf(facts);
    session.client = client;
    session.start = session.end = time;
  }
  if (facts.session) ++session.events;
  if (facts.isSessionEnd) {
    session.hasEnded = true;
    session.hasCrashed = facts.hasCrashed;
    if (isNew) session.start = time - facts.duration;
    // The end of a crashed session is only told at the next launch.
    session.end = facts.hasCrashed ? session.start + facts.duration : time;
    return;
  }
  if (facts.isSessionStart) session.start = time;
  if (facts.session) session.start = std::min(session.start, time);
  if (facts.session && !session.hasEnded) session.end = std::max(session.end, time);
  noteBackground(session, time, facts.isInBackground);
}

std::string intervalsJSON(const SessionRecord& session) {
  std::string json = "[";
  for (const auto& [from, to] : session.background) {
    if (json.size() > 1) json += ',';
    json += "[" + realJSON(from) + "," + realJSON(to) + "]";
  }
  return json + "]";
}

void readIntervals(std::string_view json, SessionRecord& session) {
  thread_local dom::parser parser;
  dom::array intervals;
  if (parser.parse(json.data(), json.size()).get(intervals) != simdjson::SUCCESS) return;
  for (const dom::element interval : intervals) {
    session.background.emplace_back(interval.at(0).get_double().value_unsafe(),
                                    interval.at(1).get_double().value_unsafe());
  }
}

}  // namespace kite::tool
