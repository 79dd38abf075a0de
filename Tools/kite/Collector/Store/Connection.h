#pragma once

#include "Collector/Store/EventStore.h"

#include <sqlite3.h>

#include <string>

namespace kite::tool {

/// One open SQLite file. Every operation throws a `StoreError` when SQLite refuses it.
class Connection {
 public:
  /// `readOnlyAtRest` is for a file that nobody writes to meanwhile: nothing is left beside it.
  enum class Access { readOnly, readOnlyAtRest, readWrite };

  Connection(const std::string& path, Access access);
  ~Connection() { sqlite3_close(_database); }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  sqlite3* get() const { return _database; }
  void execute(const char* sql);

 private:
  sqlite3* _database = nullptr;
};

/// Commits at the end of the scope's work, or takes everything back.
class Transaction {
 public:
  explicit Transaction(Connection& connection) : _connection(connection) {
    connection.execute("BEGIN IMMEDIATE");
  }
  ~Transaction() {
    if (sqlite3_get_autocommit(_connection.get()) == 0) {
      sqlite3_exec(_connection.get(), "ROLLBACK", nullptr, nullptr, nullptr);
    }
  }
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  void commit() { _connection.execute("COMMIT"); }

 private:
  Connection& _connection;
};

}  // namespace kite::tool
