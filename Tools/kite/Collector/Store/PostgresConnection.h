#pragma once

#include "Collector/Store/EventStore.h"
#include "Collector/Store/PostgresAddress.h"
#include "Collector/Store/PostgresParameters.h"

#include <set>

namespace kite::tool {

/// What the database refused, with its code of five letters.
class PostgresRefusal : public StoreAway {
 public:
  PostgresRefusal(const std::string& message, std::string code)
      : StoreAway(message), _code(std::move(code)) {}
  /// Whether a value has no place in its column.
  bool isOfData() const { return _code.starts_with("22"); }
  /// Whether the user may not do that.
  bool isOfRights() const { return _code == "42501"; }
  /// Whether the server became one that only reads.
  bool isReadOnly() const { return _code == "25006"; }

 private:
  std::string _code;
};

class PostgresRows {
 public:
  explicit PostgresRows(PGresult* result) : _result(result, PQclear) {}

  int count() const { return PQntuples(_result.get()); }
  /// The rows that the statement changed.
  std::int64_t changed() const;
  std::string_view tag() const { return PQcmdStatus(_result.get()); }

  bool isNull(int row, int column) const { return PQgetisnull(_result.get(), row, column) != 0; }
  std::string text(int row, int column) const;
  std::int64_t integer(int row, int column) const;
  double real(int row, int column) const;
  bool flag(int row, int column) const { return text(row, column) == "t"; }

 private:
  std::unique_ptr<PGresult, decltype(&PQclear)> _result;
};

/// A statement that each connection prepares once, when it is first used.
struct PostgresQuery {
  const char* name;
  std::string sql;
};

/// Does one thing after the other on a connection that it makes when it is needed, and makes anew
/// when it was lost. Every operation may throw a `StoreAway`, also because its time is up: then the
/// connection is given up, for what becomes of its statement is not known.
class PostgresConnection {
 public:
  using Clock = std::chrono::steady_clock;

  /// `setUp` is run on each new connection.
  PostgresConnection(const std::string& url, std::chrono::milliseconds patience,
                     std::string setUp = "");

  /// What follows, until the next call, has the patience's time in all.
  void startClock() { startClock(Clock::now() + _patience); }
  /// The same, with the time until then. Throws when that is over, and keeps the connection.
  void startClock(Clock::time_point deadline);
  PostgresRows run(const PostgresQuery& query, const PostgresParameters& parameters);
  /// One or several statements without parameters; the rows of the last one.
  PostgresRows run(const std::string& sql);
  /// Ends a transaction. Throws, too, when the server stopped waiting for its replicas.
  void commit();
  bool isConnected() const { return _session != nullptr; }

 private:
  void connect();
  void drop();
  void prepare(const PostgresQuery& query);
  PostgresRows finish(bool isSent);
  bool wait(bool isToWrite);
  [[noreturn]] void giveUp(const std::string& reason);
  static void noteWarning(void* self, const PGresult* warning);

  PostgresAddress _address;
  std::chrono::milliseconds _patience;
  std::string _setUp;
  PostgresSession _session{nullptr, PQfinish};
  std::set<std::string> _prepared;
  Clock::time_point _deadline;
  Clock::time_point _connectAgainAt;
  std::string _whyAway;
  std::string _warning;  // that what was committed may not be where it should be
};

/// Commits at the end of the scope's work, or takes everything back.
class PostgresTransaction {
 public:
  explicit PostgresTransaction(PostgresConnection& connection, const std::string& first = "");
  ~PostgresTransaction();
  PostgresTransaction(const PostgresTransaction&) = delete;
  PostgresTransaction& operator=(const PostgresTransaction&) = delete;

  void commit() {
    _isOpen = false;
    _connection.commit();
  }

 private:
  PostgresConnection& _connection;
  bool _isOpen = true;
};

}  // namespace kite::tool
