#include "Collector/Store/PostgresTallies.h"

#include "Collector/JSONText.h"
#include "Collector/Store/SessionNotes.h"

#include <fmt/format.h>

#include <cmath>

namespace kite::tool {
namespace {

using Of = PostgresArray::Of;

/// Sorted, so that two that count the same wait for each other, and not in a circle.
const PostgresQuery addTypes{
    "add_types",
    "INSERT INTO type_counts SELECT $1, type, pg_backend_pid() % 64, sum(events), "
    "sum(duplicates), min(first) FILTER (WHERE events > 0), max(last) FILTER (WHERE events > 0) "
    "FROM unnest($2::text[], $3::bigint[], $4::bigint[], $5::float8[], $6::float8[]) "
    "AS counted(type, events, duplicates, first, last) GROUP BY type ORDER BY type "
    "ON CONFLICT (day, type, slot) DO UPDATE SET "
    "events = type_counts.events + excluded.events, "
    "duplicates = type_counts.duplicates + excluded.duplicates, "
    "first = least(type_counts.first, excluded.first), "
    "last = greatest(type_counts.last, excluded.last)"};

const PostgresQuery addClient{
    "add_client",
    "UPDATE clients SET app = $2, tester = $3, events = events + $4, first = least(first, $5), "
    "last = greatest(last, $6) WHERE client_id = $1"};

const PostgresQuery findSessions{
    "find_sessions", fmt::format("SELECT {} FROM sessions WHERE client_id = $1 AND id = ANY ($2)",
                                 sessionColumnsOfPostgres)};

const PostgresQuery addSession{
    "add_session",
    "INSERT INTO sessions(id, client_id, started, ended, has_ended, has_crashed, events, "
    "background, is_in_background) VALUES ($1, $2, $3, $4, $5, $6, $7, $8, $9)"};

const PostgresQuery saveSession{
    "save_session",
    "UPDATE sessions SET started = $3, ended = $4, has_ended = $5, has_crashed = $6, events = $7, "
    "background = $8, is_in_background = $9 WHERE client_id = $2 AND id = $1"};

void writeTypes(PostgresConnection& connection, const Tallies& tallies, double receivedAt) {
  PostgresArray types(Of::texts);
  PostgresArray events(Of::integers);
  PostgresArray duplicates(Of::integers);
  PostgresArray firsts(Of::reals);
  PostgresArray lasts(Of::reals);
  for (const auto& [type, tally] : tallies.byType) {
    types.add(indexed(type));
    events.add(tally.events);
    duplicates.add(tally.duplicates);
    firsts.add(tally.first);
    lasts.add(tally.last);
  }
  connection.run(addTypes, PostgresParameters(
                               static_cast<std::int64_t>(std::floor(receivedAt / secondsOfADay)),
                               types, events, duplicates, firsts, lasts));
}

void writeSessions(PostgresConnection& connection, const Tallies& tallies) {
  if (tallies.bySession.empty()) return;
  std::map<std::string, SessionRecord> known;
  PostgresArray ids(Of::texts);
  for (const auto& [key, notes] : tallies.bySession) ids.add(key.second);
  // One upload is of one client.
  const std::string client = indexed(tallies.bySession.begin()->first.first);
  const auto rows = connection.run(findSessions, PostgresParameters(client, ids));
  for (int row = 0; row < rows.count(); ++row) {
    SessionRecord session = sessionOf(rows, row);
    known[session.id] = std::move(session);
  }
  for (const auto& [key, notes] : tallies.bySession) {
    SessionRecord& session = known[key.second];
    const bool isNew = session.id.empty();
    for (const SessionNote& each : notes) note(session, client, each.timestamp, each.facts);
    connection.run(isNew ? addSession : saveSession,
                   PostgresParameters(session.id, client, session.start, session.end,
                                      session.hasEnded, session.hasCrashed, session.events,
                                      intervalsJSON(session), session.isInBackground));
  }
}

}  // namespace

std::string indexed(std::string_view text) { return clipped(text, 1000); }

SessionRecord sessionOf(const PostgresRows& rows, int row) {
  SessionRecord session{.seq = rows.integer(row, 0),
                        .id = rows.text(row, 1),
                        .client = rows.text(row, 2),
                        .start = rows.real(row, 3),
                        .end = rows.real(row, 4),
                        .hasEnded = rows.flag(row, 5),
                        .hasCrashed = rows.flag(row, 6),
                        .events = rows.integer(row, 7),
                        .isInBackground = rows.flag(row, 9)};
  readIntervals(rows.text(row, 8), session);
  return session;
}

void writeTallies(PostgresConnection& connection, const Tallies& tallies, double receivedAt) {
  for (const auto& [client, counts] : tallies.byClient) {
    connection.run(addClient,
                   PostgresParameters(indexed(client), counts.app, counts.isTester,
                                      counts.tally.events, counts.tally.first, counts.tally.last));
  }
  writeSessions(connection, tallies);
  writeTypes(connection, tallies, receivedAt);
}

}  // namespace kite::tool
