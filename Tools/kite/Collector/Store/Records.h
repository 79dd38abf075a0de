#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kite::tool {

/// The number of a row. Later rows have higher ones, also after a clearing; numbers may be left
/// out.
using Seq = std::int64_t;

/// An accepted event as it is kept. The three objects are JSON text as it was received; times are
/// seconds since 1970.
struct EventRecord {
  Seq seq = 0;
  std::string id = {};
  std::string type = {};
  double timestamp = 0;
  double requestTimestamp = 0;
  double receivedAt = 0;
  std::string app = {};
  std::string client = {};
  bool isTester = false;
  std::string userInfo = {};
  std::string userIDs = {};
  std::string data = {};
  std::int64_t duplicates = 0;

  friend bool operator==(const EventRecord&, const EventRecord&) = default;
};

/// An event that came again, and how often by now.
struct RepeatedEvent {
  Seq seq;
  std::string id = {};
  std::int64_t duplicates;

  friend bool operator==(const RepeatedEvent&, const RepeatedEvent&) = default;
};

/// One request of whatever kind, and what became of it.
struct RequestRecord {
  Seq seq = 0;
  double receivedAt = 0;
  std::string method = {};
  std::string path = {};
  std::string endpoint = {};
  int status = 0;  ///< of the answer, 0 when there was none
  std::optional<int> errorCode = {};
  std::optional<std::string> message = {};
  std::optional<std::string> fault = {};
  std::int64_t bytes = 0;
  std::optional<std::int64_t> unpackedBytes = {};
  std::int64_t newEvents = 0;
  std::int64_t duplicates = 0;
  double duration = 0;  ///< seconds that the answer took
  std::int64_t attempt = 1;
  std::optional<std::string> client = {};
  std::optional<std::string> requestID = {};
  std::string headers = {};  ///< JSON text, an array of pairs
  bool hasBody = false;

  /// Whether it broke a rule, by itself and not by a fault.
  bool isRefused() const { return errorCode.has_value() && !fault; }
  friend bool operator==(const RequestRecord&, const RequestRecord&) = default;
};

/// What is known of a session by its events.
struct SessionRecord {
  Seq seq = 0;
  std::string id = {};
  std::string client = {};
  double start = 0;
  double end = 0;  ///< of the newest event of a session whose end has not come
  bool hasEnded = false;
  bool hasCrashed = false;
  std::int64_t events = 0;
  std::vector<std::pair<double, double>> background = {};
  bool isInBackground = false;  ///< by the newest event

  friend bool operator==(const SessionRecord&, const SessionRecord&) = default;
};

struct ClientRecord {
  std::string client = {};
  std::string app = {};
  std::int64_t events = 0;
  std::int64_t sessions = 0;
  double first = 0;  ///< the oldest event's time
  double last = 0;   ///< the newest event's time
  bool isTester = false;

  friend bool operator==(const ClientRecord&, const ClientRecord&) = default;
};

struct Totals {
  std::int64_t events = 0;
  std::int64_t duplicates = 0;
  std::int64_t requests = 0;
  std::int64_t refused = 0;
  std::int64_t clients = 0;
  std::int64_t sessions = 0;
  std::vector<std::pair<std::string, std::int64_t>> byType = {};  ///< ordered by type
  std::optional<double> oldest = {};
  std::optional<double> newest = {};
  Seq lastEvent = 0;  ///< 0 when none was stored ever

  friend bool operator==(const Totals&, const Totals&) = default;
};

}  // namespace kite::tool
