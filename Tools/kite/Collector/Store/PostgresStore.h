#pragma once

#include "Collector/Store/PostgresConnection.h"

namespace kite::tool {

/// A store in a PostgreSQL database, which other collectors may write to as well. Whatever fails
/// is a `StoreAway`, within two seconds: each operation, or all of one request.
class PostgresStore final : public EventStore {
 public:
  /// Throws a `StoreError` when the database cannot be used.
  PostgresStore(const std::string& url, RefusedBodiesBound bound);

  void startRequest() override;
  bool hasSeen(const std::string& requestID) override;
  Stored store(const Accepted& accepted, double receivedAt) override;
  void remember(const Sender& sender, const Refusal& refusal, double receivedAt) override;
  void record(const RequestRecord& request, std::string_view body) override;
  std::int64_t clear() override;

 private:
  using Clock = PostgresConnection::Clock;

  Clock::time_point deadline() const;
  Stored storeOnce(const Accepted& accepted, double receivedAt);
  bool reserve(const Sender& sender, double receivedAt);
  double noteNewest(const Accepted& accepted);
  void makePartitions(double receivedAt);

  PostgresConnection _connection;
  PostgresConnection _records;  // its commits do not wait for the disk
  RefusedBodiesBound _bound;
  std::optional<Clock::time_point> _deadline;  // of the request
  double _partitionedDay = -1;
  std::int64_t _recordsUntilTrim = 0;
};

}  // namespace kite::tool
