#include "Collector/Store/Tallies.h"

#include <algorithm>

namespace kite::tool {

void EventTally::add(double timestamp) {
  first = events == 0 ? timestamp : std::min(first, timestamp);
  last = events == 0 ? timestamp : std::max(last, timestamp);
  ++events;
}

void Tallies::add(const EventRecord& event) {
  add({.requestID = {}, .app = event.app, .clientID = event.client, .isTester = event.isTester},
      {.id = event.id,
       .type = event.type,
       .timestamp = event.timestamp,
       .userInfo = {},
       .userIDs = {},
       .data = {},
       .facts = factsOf(event.id, event.type, event.data)});
}

void Tallies::add(const Sender& sender, const ReceivedEvent& event) {
  byType[event.type].add(event.timestamp);
  auto& client = byClient[sender.clientID];
  client.tally.add(event.timestamp);
  client.app = sender.app;
  client.isTester = sender.isTester;
  const std::string session = sessionToldOf(event.facts);
  if (session.empty()) return;
  bySession[{sender.clientID, session}].push_back(
      {.timestamp = event.timestamp, .facts = event.facts});
}

}  // namespace kite::tool
