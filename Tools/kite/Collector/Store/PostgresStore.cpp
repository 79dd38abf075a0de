#include "Collector/Store/PostgresStore.h"

#include "Collector/Store/PostgresEvents.h"
#include "Collector/Store/PostgresRecords.h"
#include "Collector/Store/PostgresSchema.h"
#include "Collector/Store/PostgresTallies.h"

#include <algorithm>
#include <cmath>

namespace kite::tool {
namespace {

constexpr std::chrono::milliseconds patience{1500};
constexpr std::int64_t recordsBetweenTrims = 100;

/// A collector that hangs lets go of what it holds.
constexpr const char* forEvents = "SET idle_in_transaction_session_timeout = '10s'";
constexpr const char* forRecords = "SET synchronous_commit = off";

const PostgresQuery findRequest{"find_request",
                                "SELECT EXISTS (SELECT FROM requests WHERE request_id = $1)"};

const PostgresQuery addRequest{
    "add_request",
    "INSERT INTO requests VALUES ($1, $2, $3, $4, nullif($5::integer, 0)) ON CONFLICT DO NOTHING"};

/// The client's row is held until the end, so that two uploads of one client do not count at once.
const PostgresQuery noteNewestTimestamp{
    "note_newest",
    "INSERT INTO clients(client_id, newest_timestamp, app, tester) VALUES ($1, $2, $3, $4) "
    "ON CONFLICT (client_id) DO UPDATE SET "
    "newest_timestamp = greatest(clients.newest_timestamp, excluded.newest_timestamp) "
    "RETURNING newest_timestamp"};

const PostgresQuery makePartitionsFrom{"make_partitions", "SELECT make_partitions($1)"};

const PostgresQuery addRecord{
    "add_record",
    "WITH added AS (INSERT INTO received_requests(received_at, method, path, endpoint, status, "
    "error_code, message, fault, bytes, unpacked_bytes, new_events, duplicates, duration, attempt, "
    "client_id, request_id, headers) VALUES ($1, $2, $3, $4, $5, $6, $7, $8, $9, $10, $11, $12, "
    "$13, $14, $15, $16, $17) RETURNING seq) "
    "INSERT INTO refused_bodies SELECT seq, length($18::bytea), $18::bytea FROM added "
    "WHERE $18::bytea IS NOT NULL"};

const PostgresQuery trimRequests{"trim_requests", "SELECT trim_requests($1, $2, $3)"};

constexpr const char* clearEverything = R"(
  TRUNCATE events, identifiers, type_counts, sessions, received_requests, refused_bodies;
  UPDATE clients SET events = 0, first = NULL, last = NULL)";

std::string hexadecimal(std::string_view bytes) {
  constexpr const char* digits = "0123456789abcdef";
  std::string text = "\\x";
  for (const char byte : bytes) {
    text += digits[static_cast<unsigned char>(byte) >> 4];
    text += digits[byte & 15];
  }
  return text;
}

Accepted storable(Accepted accepted) {
  for (ReceivedEvent& event : accepted.batch.events) {
    event.userInfo = storableJSON(event.userInfo);
    event.userIDs = storableJSON(event.userIDs);
    event.data = storableJSON(event.data);
    std::erase(event.type, '\0');
  }
  return accepted;
}

}  // namespace

PostgresStore::PostgresStore(const std::string& url, RefusedBodiesBound bound)
    : _connection(url, patience, forEvents), _records(url, patience, forRecords), _bound(bound) {
  requireSchema(_connection);
  requireRights(_connection);
}

void PostgresStore::startRequest() { _deadline = Clock::now() + patience; }

/// When what begins now must be over.
PostgresStore::Clock::time_point PostgresStore::deadline() const {
  return _deadline.value_or(Clock::now() + patience);
}

bool PostgresStore::hasSeen(const std::string& requestID) {
  _connection.startClock(deadline());
  return _connection.run(findRequest, PostgresParameters(identifierOf(requestID))).flag(0, 0);
}

Stored PostgresStore::store(const Accepted& accepted, double receivedAt) {
  _connection.startClock(deadline());
  makePartitions(receivedAt);
  try {
    return storeOnce(accepted, receivedAt);
  } catch (const PostgresRefusal& refusal) {
    if (!refusal.isOfData()) throw;
    return storeOnce(storable(accepted), receivedAt);
  }
}

void PostgresStore::makePartitions(double receivedAt) {
  const double day = std::floor(receivedAt / secondsOfADay);
  if (day == _partitionedDay) return;
  _connection.run(makePartitionsFrom, PostgresParameters(receivedAt));
  _partitionedDay = day;
}

Stored PostgresStore::storeOnce(const Accepted& accepted, double receivedAt) {
  PostgresTransaction transaction(_connection, holdNumbers);
  Stored stored;
  if (!reserve(accepted.sender, receivedAt)) {
    stored.isReplay = true;
    return stored;
  }
  stored.newestTimestamp = noteNewest(accepted);
  Tallies tallies;
  addEvents(_connection, accepted, receivedAt, stored, tallies);
  writeTallies(_connection, tallies, receivedAt);
  transaction.commit();
  return stored;
}

bool PostgresStore::reserve(const Sender& sender, double receivedAt) {
  const PostgresParameters parameters(identifierOf(sender.requestID), receivedAt, sender.clientID,
                                      200, 0);
  return _connection.run(addRequest, parameters).changed() == 1;
}

double PostgresStore::noteNewest(const Accepted& accepted) {
  const auto& [sender, batch] = accepted;
  const auto newest = std::ranges::max_element(batch.events, {}, &ReceivedEvent::timestamp);
  const PostgresParameters parameters(indexed(sender.clientID), newest->timestamp, sender.app,
                                      sender.isTester);
  return _connection.run(noteNewestTimestamp, parameters).real(0, 0);
}

void PostgresStore::remember(const Sender& sender, const Refusal& refusal, double receivedAt) {
  _connection.startClock(deadline());
  _connection.run(addRequest, PostgresParameters(identifierOf(sender.requestID), receivedAt,
                                                 sender.clientID, refusal.status, refusal.code));
}

void PostgresStore::record(const RequestRecord& request, std::string_view body) {
  _records.startClock(deadline());
  const bool isKept = !body.empty() && static_cast<std::int64_t>(body.size()) <= _bound.bytes;
  _records.run(addRecord,
               PostgresParameters(
                   request.receivedAt, request.method, request.path, request.endpoint,
                   request.status, request.errorCode, request.message, request.fault, request.bytes,
                   request.unpackedBytes, request.newEvents, request.duplicates, request.duration,
                   request.attempt, request.client, request.requestID, request.headers,
                   isKept ? std::optional(hexadecimal(body)) : std::nullopt));
  if (!isKept && --_recordsUntilTrim > 0) return;
  _recordsUntilTrim = recordsBetweenTrims;
  _records.run(trimRequests, PostgresParameters(mostRequestsKept, _bound.count, _bound.bytes));
}

std::int64_t PostgresStore::clear() {
  _connection.startClock(deadline());
  PostgresTransaction transaction(_connection);
  const auto count = _connection.run("SELECT count(*) FROM events").integer(0, 0);
  _connection.run(clearEverything);
  transaction.commit();
  return count;
}

}  // namespace kite::tool
