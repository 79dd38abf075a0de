#include "Collector/Store/SQLiteStore.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>

namespace kite::tool {
namespace {

/// SQLite would make the file readable by everyone.
std::string madeFile(const std::string& path) {
  const int file = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (file >= 0) ::close(file);
  return path;
}

std::optional<std::int64_t> integer(const std::optional<int>& number) {
  return number ? std::optional<std::int64_t>(*number) : std::nullopt;
}

constexpr const char* clearEverything = R"(
  UPDATE last_cleared SET seq = max(seq, (SELECT coalesce(max(rowid), 0) FROM events));
  DELETE FROM events;
  DELETE FROM type_counts;
  DELETE FROM client_counts;
  DELETE FROM sessions;
  DELETE FROM received_requests;
  DELETE FROM refused_bodies;
)";

}  // namespace

struct SQLiteStore::Statements {
  explicit Statements(Connection& connection)
      : findRequest(connection, "SELECT EXISTS(SELECT 1 FROM requests WHERE request_id = ?)"),
        addRequest(connection,
                   "INSERT INTO requests VALUES(?, ?, ?, ?, nullif(?, 0)) "
                   "ON CONFLICT(request_id) DO NOTHING"),
        nextEvent(connection,
                  "SELECT 1 + max((SELECT seq FROM last_cleared), "
                  "(SELECT coalesce(max(rowid), 0) FROM events))"),
        addEvent(connection,
                 "INSERT INTO events(rowid, id, type, timestamp, request_timestamp, received_at, "
                 "app, client_id, tester, user_info, user_ids, data, duplicates) "
                 "VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, 0) ON CONFLICT(id) DO NOTHING"),
        countDuplicate(connection,
                       "UPDATE events SET duplicates = duplicates + 1 WHERE id = ? "
                       "RETURNING rowid, id, duplicates, type"),
        noteNewest(connection,
                   "INSERT INTO clients VALUES(?, ?) ON CONFLICT(client_id) DO UPDATE SET "
                   "newest_timestamp = max(newest_timestamp, excluded.newest_timestamp) "
                   "RETURNING newest_timestamp"),
        countEvents(connection, "SELECT count(*) FROM events"),
        tallies(connection) {}

  Statement findRequest;
  Statement addRequest;
  Statement nextEvent;
  Statement addEvent;
  Statement countDuplicate;
  Statement noteNewest;
  Statement countEvents;
  TallyWriter tallies;
};

struct SQLiteStore::RecordStatements {
  explicit RecordStatements(Connection& connection)
      : add(connection,
            "INSERT INTO received_requests(received_at, method, path, endpoint, status, "
            "error_code, message, fault, bytes, unpacked_bytes, new_events, duplicates, duration, "
            "attempt, client_id, request_id, headers) "
            "VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)"),
        addBody(connection, "INSERT INTO refused_bodies VALUES(last_insert_rowid(), ?, ?)"),
        dropOld(connection,
                "DELETE FROM received_requests WHERE seq <= "
                "(SELECT max(seq) FROM received_requests) - ?"),
        dropBodies(connection,
                   "DELETE FROM refused_bodies WHERE seq <= (SELECT max(seq) FROM (SELECT seq, "
                   "row_number() OVER newest AS place, sum(size) OVER newest AS bytes "
                   "FROM refused_bodies WINDOW newest AS (ORDER BY seq DESC)) "
                   "WHERE place > ? OR bytes > ?)") {}

  Statement add;
  Statement addBody;
  Statement dropOld;
  Statement dropBodies;
};

SQLiteStore::SQLiteStore(const std::string& path, RefusedBodiesBound bound)
    : _connection(madeFile(path), Connection::Access::readWrite), _bound(bound) {
  prepareSchema(_connection);
  _statements = std::make_unique<Statements>(_connection);
  _recordStatements = std::make_unique<RecordStatements>(_connection);
}

SQLiteStore::~SQLiteStore() = default;

bool SQLiteStore::hasSeen(const std::string& requestID) {
  Statement& findRequest = _statements->findRequest;
  findRequest.with(requestID).step();
  const bool found = findRequest.integer(0) != 0;
  findRequest.reset();
  return found;
}

Stored SQLiteStore::store(const Accepted& accepted, double receivedAt) {
  const auto& [sender, batch] = accepted;
  commitsReachTheDisk(true);
  Transaction transaction(_connection);
  _statements->addRequest
      .with(sender.requestID, receivedAt, sender.clientID, std::int64_t{200}, std::int64_t{0})
      .run();
  Stored stored;
  stored.isReplay = sqlite3_changes(_connection.get()) == 0;
  if (stored.isReplay) return stored;
  storeEvents(accepted, receivedAt, stored);
  double newest = batch.events.front().timestamp;
  for (const ReceivedEvent& event : batch.events) newest = std::max(newest, event.timestamp);
  _statements->noteNewest.with(sender.clientID, newest).step();
  stored.newestTimestamp = _statements->noteNewest.real(0);
  _statements->noteNewest.run();
  transaction.commit();
  return stored;
}

void SQLiteStore::storeEvents(const Accepted& accepted, double receivedAt, Stored& stored) {
  const auto& [sender, batch] = accepted;
  Tallies tallies;
  _statements->nextEvent.with().step();
  Seq seq = _statements->nextEvent.integer(0);
  _statements->nextEvent.reset();
  for (const ReceivedEvent& event : batch.events) {
    _statements->addEvent
        .with(seq, event.id, event.type, event.timestamp, batch.requestTimestamp, receivedAt,
              sender.app, sender.clientID, std::int64_t{sender.isTester}, event.userInfo,
              event.userIDs, event.data)
        .run();
    if (sqlite3_changes(_connection.get()) == 1) {
      ++seq;
      ++stored.newEvents;
      tallies.add(sender, event);
    } else {
      ++stored.duplicates;
      countDuplicate(event.id, tallies, stored);
    }
  }
  _statements->tallies.write(tallies);
}

void SQLiteStore::countDuplicate(const std::string& id, Tallies& tallies, Stored& stored) {
  forEachRow(_statements->countDuplicate.with(id), [&](const Statement& row) {
    stored.repeated.push_back({row.integer(0), row.text(1), row.integer(2)});
    ++tallies.byType[row.text(3)].duplicates;
    return true;
  });
}

void SQLiteStore::remember(const Sender& sender, const Refusal& refusal, double receivedAt) {
  commitsReachTheDisk(true);
  _statements->addRequest
      .with(sender.requestID, receivedAt, sender.clientID, std::int64_t{refusal.status},
            std::int64_t{refusal.code})
      .run();
}

void SQLiteStore::record(const RequestRecord& request, std::string_view body) {
  commitsReachTheDisk(false);
  Transaction transaction(_connection);
  _recordStatements->add
      .with(request.receivedAt, request.method, request.path, request.endpoint,
            std::int64_t{request.status}, integer(request.errorCode), request.message,
            request.fault, request.bytes, request.unpackedBytes, request.newEvents,
            request.duplicates, request.duration, request.attempt, request.client,
            request.requestID, request.headers)
      .run();
  if (!body.empty()) keepBody(body);
  _recordStatements->dropOld.with(mostRequestsKept).run();
  transaction.commit();
}

void SQLiteStore::keepBody(std::string_view body) {
  const auto size = static_cast<std::int64_t>(body.size());
  if (size > _bound.bytes) return;
  _recordStatements->addBody.with(size, Blob{body}).run();
  _recordStatements->dropBodies.with(_bound.count, _bound.bytes).run();
}

std::int64_t SQLiteStore::clear() {
  commitsReachTheDisk(true);
  Transaction transaction(_connection);
  _statements->countEvents.with().step();
  const auto count = _statements->countEvents.integer(0);
  _statements->countEvents.reset();
  _connection.execute(clearEverything);
  transaction.commit();
  return count;
}

// One connection does both: what another one commits empties the page cache of this one.
void SQLiteStore::commitsReachTheDisk(bool doThey) {
  _connection.execute(doThey ? "PRAGMA synchronous = FULL" : "PRAGMA synchronous = NORMAL");
}

}  // namespace kite::tool
