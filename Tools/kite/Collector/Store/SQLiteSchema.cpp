#include "Collector/Store/SQLiteSchema.h"

#include "Collector/Store/SessionNotes.h"

#include <fmt/format.h>

namespace kite::tool {
namespace {

constexpr const char* tables = R"(
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

constexpr const char* tablesOfVersion1 = R"(
  CREATE TABLE last_cleared(seq INTEGER NOT NULL);
  INSERT INTO last_cleared VALUES(0);
  CREATE TABLE type_counts(
    type TEXT PRIMARY KEY, events INTEGER NOT NULL, duplicates INTEGER NOT NULL,
    first REAL NOT NULL, last REAL NOT NULL);
  CREATE TABLE client_counts(
    client_id TEXT PRIMARY KEY, app TEXT NOT NULL, tester INTEGER NOT NULL,
    events INTEGER NOT NULL, first REAL NOT NULL, last REAL NOT NULL);
  CREATE TABLE sessions(
    seq INTEGER PRIMARY KEY AUTOINCREMENT, id TEXT NOT NULL, client_id TEXT NOT NULL,
    started REAL NOT NULL, ended REAL NOT NULL, has_ended INTEGER NOT NULL,
    has_crashed INTEGER NOT NULL, events INTEGER NOT NULL, background TEXT NOT NULL,
    is_in_background INTEGER NOT NULL, UNIQUE(client_id, id));
  CREATE INDEX sessions_in_time ON sessions(client_id, started, seq);
  CREATE TABLE received_requests(
    seq INTEGER PRIMARY KEY AUTOINCREMENT, received_at REAL NOT NULL, method TEXT NOT NULL,
    path TEXT NOT NULL, endpoint TEXT NOT NULL, status INTEGER NOT NULL, error_code INTEGER,
    message TEXT, fault TEXT, bytes INTEGER NOT NULL, unpacked_bytes INTEGER,
    new_events INTEGER NOT NULL, duplicates INTEGER NOT NULL, duration REAL NOT NULL,
    attempt INTEGER NOT NULL, client_id TEXT, request_id TEXT, headers TEXT NOT NULL);
  CREATE INDEX refused_requests ON received_requests(seq)
    WHERE error_code IS NOT NULL AND fault IS NULL;
  CREATE TABLE refused_bodies(seq INTEGER PRIMARY KEY, size INTEGER NOT NULL, body BLOB NOT NULL);
)";

/// For people, by the names that other kinds of stores use as well. An event did not happen after
/// it was received, nor before 1970, whatever its sender's clock says.
constexpr const char* views = R"(
  CREATE VIEW IF NOT EXISTS daily_active_clients AS
    SELECT date(min(max(timestamp, 0), received_at), 'unixepoch') AS day,
      count(DISTINCT client_id) AS clients, count(*) AS events
    FROM events GROUP BY 1;
  CREATE VIEW IF NOT EXISTS actions_by_name AS
    SELECT json_extract(data, '$.action_kind') AS name, count(*) AS actions,
      count(DISTINCT client_id) AS clients
    FROM events WHERE type = 'UserAction' GROUP BY 1;
  CREATE VIEW IF NOT EXISTS installs_and_updates AS
    SELECT day, sum(NOT is_update) AS installs, sum(is_update) AS updates
    FROM (SELECT date(min(max(timestamp, 0), received_at), 'unixepoch') AS day,
            coalesce(json_extract(data, '$.old_app_version'),
                     json_extract(data, '$.old_bundle_version')) IS NOT NULL AS is_update
          FROM events WHERE type = 'Install')
    GROUP BY 1;
  CREATE VIEW IF NOT EXISTS crash_rate AS
    SELECT day, count(*) AS sessions, sum(crashed) AS crashes, avg(crashed) AS rate
    FROM (SELECT date(min(max(timestamp, 0), received_at), 'unixepoch') AS day,
            json_extract(data, '$.crashed') AS crashed
          FROM events WHERE type = 'Session' AND json_extract(data, '$.subtype') = 'session_end')
    GROUP BY 1;
)";

std::int64_t versionOf(Connection& connection) {
  Statement version(connection, "PRAGMA user_version");
  version.step();
  return version.integer(0);
}

void countOlderEvents(Connection& connection) {
  Tallies tallies;
  Statement all(connection, fmt::format("SELECT {} FROM events ORDER BY rowid", eventColumns));
  while (all.step()) {
    const EventRecord event = eventOf(all);
    tallies.add(event);
    tallies.byType[event.type].duplicates += event.duplicates;
  }
  TallyWriter(connection).write(tallies);
}

}  // namespace

void prepareSchema(Connection& connection) {
  // Five events of 1.4 kB on a page instead of two: a batch is fewer and fuller pages. Of a file
  // that is there already the size stays as it is.
  connection.execute("PRAGMA page_size = 8192");
  connection.execute("PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL");
  // A full batch alone fills the pages after which SQLite tidies up by default, and identifiers,
  // which are spread over the whole index, touch more pages than it keeps by default.
  connection.execute("PRAGMA wal_autocheckpoint = 4000; PRAGMA cache_size = -65536");
  connection.execute(tables);
  connection.execute(views);
  Transaction transaction(connection);  // two that open the file at once do not both upgrade it
  if (versionOf(connection) >= schemaVersion) return;
  connection.execute(tablesOfVersion1);
  countOlderEvents(connection);
  connection.execute("PRAGMA user_version = 1");
  transaction.commit();
}

EventRecord eventOf(const Statement& row) {
  return {.seq = row.integer(0),
          .id = row.text(1),
          .type = row.text(2),
          .timestamp = row.real(3),
          .requestTimestamp = row.real(4),
          .receivedAt = row.real(5),
          .app = row.text(6),
          .client = row.text(7),
          .isTester = row.integer(8) != 0,
          .userInfo = row.text(9),
          .userIDs = row.text(10),
          .data = row.text(11),
          .duplicates = row.integer(12)};
}

SessionRecord sessionOf(const Statement& row) {
  SessionRecord session{.seq = row.integer(0),
                        .id = row.text(1),
                        .client = row.text(2),
                        .start = row.real(3),
                        .end = row.real(4),
                        .hasEnded = row.integer(5) != 0,
                        .hasCrashed = row.integer(6) != 0,
                        .events = row.integer(7),
                        .isInBackground = row.integer(9) != 0};
  readIntervals(row.text(8), session);
  return session;
}

TallyWriter::TallyWriter(Connection& connection)
    : _addType(connection,
               "INSERT INTO type_counts VALUES(?, ?, ?, ?, ?) ON CONFLICT(type) DO UPDATE SET "
               "events = events + excluded.events, duplicates = duplicates + excluded.duplicates, "
               "first = iif(excluded.events = 0, first, min(first, excluded.first)), "
               "last = iif(excluded.events = 0, last, max(last, excluded.last))"),
      _addClient(connection,
                 "INSERT INTO client_counts VALUES(?, ?, ?, ?, ?, ?) ON CONFLICT(client_id) DO "
                 "UPDATE SET app = excluded.app, tester = excluded.tester, "
                 "events = events + excluded.events, first = min(first, excluded.first), "
                 "last = max(last, excluded.last)"),
      _findSession(connection, fmt::format("SELECT {} FROM sessions WHERE client_id = ? AND id = ?",
                                           sessionColumns)),
      _saveSession(connection,
                   "INSERT INTO sessions(id, client_id, started, ended, has_ended, has_crashed, "
                   "events, background, is_in_background) VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?) "
                   "ON CONFLICT(client_id, id) DO UPDATE SET started = excluded.started, "
                   "ended = excluded.ended, has_ended = excluded.has_ended, "
                   "has_crashed = excluded.has_crashed, events = excluded.events, "
                   "background = excluded.background, "
                   "is_in_background = excluded.is_in_background") {}

void TallyWriter::write(const Tallies& tallies) {
  for (const auto& [type, tally] : tallies.byType) {
    _addType.with(type, tally.events, tally.duplicates, tally.first, tally.last).run();
  }
  for (const auto& [client, counts] : tallies.byClient) {
    _addClient
        .with(client, counts.app, std::int64_t{counts.isTester}, counts.tally.events,
              counts.tally.first, counts.tally.last)
        .run();
  }
  for (const auto& [key, notes] : tallies.bySession) writeSession(key.first, key.second, notes);
}

void TallyWriter::writeSession(const std::string& client, const std::string& id,
                               const std::vector<SessionNote>& notes) {
  SessionRecord session;
  forEachRow(_findSession.with(client, id), [&session](const Statement& row) {
    session = sessionOf(row);
    return false;
  });
  for (const SessionNote& each : notes) note(session, client, each.timestamp, each.facts);
  _saveSession
      .with(session.id, client, session.start, session.end, std::int64_t{session.hasEnded},
            std::int64_t{session.hasCrashed}, session.events, intervalsJSON(session),
            std::int64_t{session.isInBackground})
      .run();
}

}  // namespace kite::tool
