#pragma once

#include "Collector/Checks/RequestCheck.h"
#include "Collector/EventFacts.h"
#include "Collector/Store/Records.h"

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace kite::tool {

/// How many events there are, of a type or of a client, and from when to when.
struct EventTally {
  std::int64_t events = 0;
  std::int64_t duplicates = 0;
  double first = 0;
  double last = 0;

  void add(double timestamp);
};

/// What a client's events tell beside their number.
struct ClientTally {
  EventTally tally = {};
  std::string app = {};
  bool isTester = false;
};

/// One new event's part in its session.
struct SessionNote {
  double timestamp;
  EventFacts facts;
};

/// What a batch adds to the counts, so that each is written once.
struct Tallies {
  void add(const EventRecord& event);
  void add(const Sender& sender, const ReceivedEvent& event);

  std::map<std::string, EventTally> byType;
  std::map<std::string, ClientTally> byClient;
  /// By client and session: an id is its maker's.
  std::map<std::pair<std::string, std::string>, std::vector<SessionNote>> bySession;
};

}  // namespace kite::tool
