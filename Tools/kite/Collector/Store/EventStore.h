#pragma once

#include <Kite/Base/Result.h>

#include "Collector/Checks/RequestCheck.h"
#include "Collector/Store/Records.h"

#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace kite::tool {

/// What the database said. Every operation of a store may throw it.
class StoreError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// It cannot be reached now, or not be used as it is: what was asked for may be asked for later.
class StoreAway : public StoreError {
 public:
  using StoreError::StoreError;
};

/// What a batch changed.
struct Stored {
  bool isReplay = false;  ///< the request's id was used up meanwhile, and nothing was stored
  std::size_t newEvents = 0;
  std::size_t duplicates = 0;
  double newestTimestamp = 0;  ///< of all events that the client ever sent
  std::vector<RepeatedEvent> repeated = {};
};

/// The refused bodies that are kept: the newest, up to both bounds.
struct RefusedBodiesBound {
  std::int64_t count = 1000;
  std::int64_t bytes = 64 * 1024 * 1024;
};
/// Of the requests the newest are kept.
inline constexpr std::int64_t mostRequestsKept = 100'000;

/// The side that the intake writes to. Used by one thread at a time; others may be open on the same
/// store.
class EventStore {
 public:
  virtual ~EventStore() = default;

  /// From now on the operations, until the next call, share the time that there is for one request.
  virtual void startRequest() {}
  /// Whether a request of that id was stored or remembered before.
  virtual bool hasSeen(const std::string& requestID) = 0;
  /// Stores the request's id and its new events; an event that is there already is only counted.
  /// All of it is on disk when this returns, or nothing of it. `receivedAt` is in seconds since
  /// 1970.
  virtual Stored store(const Accepted& accepted, double receivedAt) = 0;
  /// Remembers the id of a request of a known sender that was refused.
  virtual void remember(const Sender& sender, const Refusal& refusal, double receivedAt) = 0;
  /// Keeps what became of a request, with its body if that is not empty. A loss of power may take
  /// it.
  virtual void record(const RequestRecord& request, std::string_view body) = 0;
  /// Removes events, requests, bodies, sessions and counts, and says how many events these were.
  /// Ids of requests stay used up, and the newest timestamps of clients known.
  virtual std::int64_t clear() = 0;
};

/// Rows from `first` to `last`, both included.
struct SeqRange {
  Seq first = 0;
  Seq last = 0;

  friend bool operator==(const SeqRange&, const SeqRange&) = default;
};

enum class Order { oldestFirst, newestFirst };

/// Rows that need not be looked at; a store may leave them out or not.
struct EventFilter {
  std::optional<std::string> type = {};
  std::optional<std::string> client = {};
  std::optional<std::string> id = {};
};

/// The side that is read from, while others write. Used by one thread at a time. What a visitor is
/// given lasts for its call; it ends the scan by returning false.
class EventReader {
 public:
  virtual ~EventReader() = default;

  /// The numbers that are in use; {0, 0} when there are none.
  virtual SeqRange events() = 0;
  virtual void scanEvents(SeqRange range, Order order, const EventFilter& filter,
                          const std::function<bool(const EventRecord&)>& visit) = 0;
  virtual std::optional<EventRecord> event(const std::string& id) = 0;
  /// The client's event that was stored before that one, if it is not too far away.
  virtual std::optional<EventRecord> eventBefore(const EventRecord& event) = 0;

  virtual SeqRange requests() = 0;
  virtual void scanRequests(SeqRange range, Order order,
                            const std::function<bool(const RequestRecord&)>& visit) = 0;
  virtual std::optional<RequestRecord> request(Seq seq) = 0;
  virtual std::optional<std::string> refusedBody(Seq seq) = 0;

  virtual SeqRange sessions() = 0;
  /// Newest first; those of one client, when it is named.
  virtual void scanSessions(SeqRange range, const std::optional<std::string>& client,
                            const std::function<bool(const SessionRecord&)>& visit) = 0;
  /// The client's sessions that began before and after that one, next to it.
  virtual std::optional<SessionRecord> sessionBefore(const SessionRecord& session) = 0;
  virtual std::optional<SessionRecord> sessionAfter(const SessionRecord& session) = 0;

  /// Those with the newest events first.
  virtual std::vector<ClientRecord> clients(std::size_t limit) = 0;
  virtual Totals totals() = 0;
};

/// One store, by its place: the path of a SQLite file, which is made when it is not there, or the
/// address of a PostgreSQL database. The errors are one line.
Result<std::unique_ptr<EventStore>, std::string> openStore(const std::string& place,
                                                           RefusedBodiesBound bound = {});
/// Of a store that was opened before.
Result<std::unique_ptr<EventReader>, std::string> openReader(const std::string& place);

}  // namespace kite::tool
