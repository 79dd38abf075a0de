#include "Collector/EventDatabase.h"

#include "Collector/Statement.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>

namespace kite::tool {
namespace {

constexpr int patience = 2000;  // milliseconds for another process that holds the file

constexpr const char* setUp = R"(
  PRAGMA journal_mode = WAL;
  PRAGMA synchronous = FULL;
  PRAGMA wal_autocheckpoint = 8000;  -- pages: a full batch alone fills the default
  CREATE TABLE IF NOT EXISTS events(
    id TEXT PRIMARY KEY, type TEXT NOT NULL, timestamp REAL NOT NULL,
    request_timestamp REAL NOT NULL, received_at REAL NOT NULL, app TEXT NOT NULL,
    client_id TEXT NOT NULL, tester INTEGER NOT NULL, user_info TEXT NOT NULL,
    user_ids TEXT NOT NULL, data TEXT NOT NULL, duplicates INTEGER NOT NULL DEFAULT 0);
  CREATE TABLE IF NOT EXISTS requests(
    request_id TEXT PRIMARY KEY, received_at REAL NOT NULL, client_id TEXT NOT NULL,
    status INTEGER NOT NULL, error_code INTEGER);
  CREATE TABLE IF NOT EXISTS clients(
    client_id TEXT PRIMARY KEY, newest_timestamp REAL NOT NULL);
)";

void execute(sqlite3* database, const char* sql) {
  if (sqlite3_exec(database, sql, nullptr, nullptr, nullptr) != SQLITE_OK) {
    throw DatabaseError(sqlite3_errmsg(database));
  }
}

/// SQLite would make the file readable by everyone.
void makeFile(const std::string& path) {
  const int file = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (file >= 0) ::close(file);
}

/// Commits at the end of the scope's work, or takes everything back.
class Transaction {
 public:
  explicit Transaction(sqlite3* database) : _database(database) {
    execute(database, "BEGIN IMMEDIATE");
  }
  ~Transaction() {
    if (sqlite3_get_autocommit(_database) == 0) {
      sqlite3_exec(_database, "ROLLBACK", nullptr, nullptr, nullptr);
    }
  }
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  void commit() { execute(_database, "COMMIT"); }

 private:
  sqlite3* _database;
};

}  // namespace

struct EventDatabase::Handle {
  sqlite3* database = nullptr;
  ~Handle() { sqlite3_close(database); }
};

struct EventDatabase::Statements {
  explicit Statements(sqlite3* database)
      : findRequest(database, "SELECT EXISTS(SELECT 1 FROM requests WHERE request_id = ?)"),
        addRequest(database, "INSERT INTO requests VALUES(?, ?, ?, ?, nullif(?, 0))"),
        addEvent(database,
                 "INSERT INTO events VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, 0) "
                 "ON CONFLICT(id) DO NOTHING"),
        countDuplicate(database, "UPDATE events SET duplicates = duplicates + 1 WHERE id = ?"),
        noteNewest(database,
                   "INSERT INTO clients VALUES(?, ?) ON CONFLICT(client_id) DO UPDATE SET "
                   "newest_timestamp = max(newest_timestamp, excluded.newest_timestamp) "
                   "RETURNING newest_timestamp") {}

  Statement findRequest;
  Statement addRequest;
  Statement addEvent;
  Statement countDuplicate;
  Statement noteNewest;
};

EventDatabase::EventDatabase() : _handle(std::make_unique<Handle>()) {}
EventDatabase::~EventDatabase() = default;

Result<std::unique_ptr<EventDatabase>, std::string> EventDatabase::open(const std::string& path) {
  std::unique_ptr<EventDatabase> database(new EventDatabase);
  try {
    database->prepare(path);
  } catch (const DatabaseError& error) {
    return Failure{"cannot use the database " + path + ": " + error.what()};
  }
  return database;
}

void EventDatabase::prepare(const std::string& path) {
  makeFile(path);
  sqlite3*& database = _handle->database;
  if (sqlite3_open_v2(path.c_str(), &database, SQLITE_OPEN_READWRITE, nullptr) != SQLITE_OK) {
    throw DatabaseError(sqlite3_errmsg(database));
  }
  sqlite3_busy_timeout(database, patience);
  execute(database, setUp);
  _statements = std::make_unique<Statements>(database);
}

Result<bool, std::string> EventDatabase::hasSeen(const std::string& requestID) {
  try {
    Statement& findRequest = _statements->findRequest;
    findRequest.with(requestID).step();
    const bool found = findRequest.integer(0) != 0;
    findRequest.run();
    return found;
  } catch (const DatabaseError& error) {
    return Failure<std::string>{error.what()};
  }
}

Result<Stored, std::string> EventDatabase::store(const Accepted& accepted, double receivedAt) {
  try {
    return storeAll(accepted, receivedAt);
  } catch (const DatabaseError& error) {
    return Failure<std::string>{error.what()};
  }
}

Stored EventDatabase::storeAll(const Accepted& accepted, double receivedAt) {
  const auto& [sender, batch] = accepted;
  Transaction transaction(_handle->database);
  _statements->addRequest
      .with(sender.requestID, receivedAt, sender.clientID, std::int64_t{200}, std::int64_t{0})
      .run();

  Stored stored{.newEvents = 0, .duplicates = 0, .newestTimestamp = 0};
  Statement& addEvent = _statements->addEvent;
  double newest = batch.events.front().timestamp;
  for (const ReceivedEvent& event : batch.events) {
    addEvent
        .with(event.id, event.type, event.timestamp, batch.requestTimestamp, receivedAt, sender.app,
              sender.clientID, std::int64_t{sender.isTester}, event.userInfo, event.userIDs,
              event.data)
        .run();
    const bool isNew = sqlite3_changes(_handle->database) == 1;
    if (!isNew) _statements->countDuplicate.with(event.id).run();
    ++(isNew ? stored.newEvents : stored.duplicates);
    newest = std::max(newest, event.timestamp);
  }
  _statements->noteNewest.with(sender.clientID, newest).step();
  stored.newestTimestamp = _statements->noteNewest.real(0);
  _statements->noteNewest.run();
  transaction.commit();
  return stored;
}

std::optional<std::string> EventDatabase::remember(const Sender& sender, const Refusal& refusal,
                                                   double receivedAt) {
  try {
    _statements->addRequest
        .with(sender.requestID, receivedAt, sender.clientID, std::int64_t{refusal.status},
              std::int64_t{refusal.code})
        .run();
    return std::nullopt;
  } catch (const DatabaseError& error) {
    return error.what();
  }
}

}  // namespace kite::tool
