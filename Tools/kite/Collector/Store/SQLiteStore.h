#pragma once

#include "Collector/Store/SQLiteSchema.h"

#include <memory>
#include <string>

namespace kite::tool {

/// A store in one SQLite file, readable by its owner alone. Other processes may read it meanwhile.
class SQLiteStore final : public EventStore {
 public:
  /// Throws a `StoreError` when the file cannot be used.
  SQLiteStore(const std::string& path, RefusedBodiesBound bound);
  ~SQLiteStore() override;

  bool hasSeen(const std::string& requestID) override;
  Stored store(const Accepted& accepted, double receivedAt) override;
  void remember(const Sender& sender, const Refusal& refusal, double receivedAt) override;
  void record(const RequestRecord& request, std::string_view body) override;
  std::int64_t clear() override;

 private:
  struct Statements;
  struct RecordStatements;

  void storeEvents(const Accepted& accepted, double receivedAt, Stored& stored);
  void countDuplicate(const std::string& id, Tallies& tallies, Stored& stored);
  void keepBody(std::string_view body);
  void commitsReachTheDisk(bool doThey);

  Connection _connection;
  RefusedBodiesBound _bound;
  std::unique_ptr<Statements> _statements;
  std::unique_ptr<RecordStatements> _recordStatements;
};

}  // namespace kite::tool
