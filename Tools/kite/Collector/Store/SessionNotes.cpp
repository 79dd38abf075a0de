#include "Collector/Store/SessionNotes.h"

#include "Collector/JSONText.h"

#include <simdjson.h>

#include <algorithm>

namespace kite::tool {
namespace {

namespace dom = simdjson::dom;

/// A run of events in the background lasts until the first one in the foreground.
void noteBackground(SessionRecord& session, double time, bool isInBackground) {
  if (isInBackground && !session.isInBackground) session.background.emplace_back(time, time);
  if (isInBackground || session.isInBackground) {
    session.background.back().second = std::max(session.background.back().second, time);
  }
  session.isInBackground = isInBackground;
}

}  // namespace

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
