#pragma once

#include "Support/TemporaryFolder.h"

#include <sys/types.h>

#include <string>
#include <thread>

struct pg_conn;

namespace kite::test {

/// A PostgreSQL server of its own in a temporary folder, on a loopback port. It dies with the
/// program that started it, however that ends. Needs another user's rights when run by root.
class PostgresServer {
 public:
  PostgresServer();
  ~PostgresServer();
  PostgresServer(const PostgresServer&) = delete;
  PostgresServer& operator=(const PostgresServer&) = delete;

  void start();
  /// As a crash ends it.
  void stop();
  /// Answers no new connection until `resume`.
  void pause() const;
  void resume() const;

  /// As its owner, or as another user; of that database.
  std::string address(const std::string& database, const std::string& user = "kite") const;
  int port() const { return _port; }

 private:
  TemporaryFolder _folder;
  int _port;
  pid_t _process = -1;
  std::thread _log;
};

/// Runs `sql` there; gives all values, a blank between two columns and a line end behind each row.
std::string queryPostgres(const std::string& address, const std::string& sql);

/// Holds a lock as another session would.
class OtherSession {
 public:
  explicit OtherSession(const std::string& address);
  ~OtherSession();
  OtherSession(const OtherSession&) = delete;
  OtherSession& operator=(const OtherSession&) = delete;
  void run(const char* sql) const;

 private:
  pg_conn* _connection;
};

/// The server of all tests of this program.
PostgresServer& sharedServer();

/// An empty database of that server, with the tables of a store if they are wanted, that goes at
/// the end of the test.
class PostgresDatabase {
 public:
  enum class Tables { made, absent };
  explicit PostgresDatabase(Tables tables = Tables::made);
  ~PostgresDatabase();
  PostgresDatabase(const PostgresDatabase&) = delete;
  PostgresDatabase& operator=(const PostgresDatabase&) = delete;

  std::string place(const std::string& user = "kite") const {
    return sharedServer().address(_name, user);
  }
  std::string query(const std::string& sql) const { return queryPostgres(place(), sql); }
  const std::string& name() const { return _name; }

 private:
  std::string _name;
};

}  // namespace kite::test
