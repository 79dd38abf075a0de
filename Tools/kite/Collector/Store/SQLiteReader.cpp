#include "Collector/Store/SQLiteReader.h"

#include <fmt/format.h>

#include <algorithm>

namespace kite::tool {
namespace {

constexpr Seq farAway = 50'000;  // rows between two events of a client

constexpr std::string_view requestColumns =
    "seq, received_at, method, path, endpoint, status, error_code, message, fault, bytes, "
    "unpacked_bytes, new_events, duplicates, duration, attempt, client_id, request_id, headers, "
    "EXISTS(SELECT 1 FROM refused_bodies WHERE refused_bodies.seq = received_requests.seq)";

std::string eventScan(std::string_view order) {
  return fmt::format(
      "SELECT {} FROM events WHERE rowid BETWEEN ?1 AND ?2 AND (?3 IS NULL OR type = ?3) "
      "AND (?4 IS NULL OR client_id = ?4) AND (?5 IS NULL OR id = ?5) ORDER BY rowid {}",
      eventColumns, order);
}

std::string requestScan(std::string_view order) {
  return fmt::format("SELECT {} FROM received_requests WHERE seq BETWEEN ? AND ? ORDER BY seq {}",
                     requestColumns, order);
}

std::string neighbour(std::string_view comparison, std::string_view order) {
  return fmt::format(
      "SELECT {0} FROM sessions WHERE client_id = ? AND (started, seq) {1} (?, ?) "
      "ORDER BY started {2}, seq {2} LIMIT 1",
      sessionColumns, comparison, order);
}

std::optional<std::string> textOrNothing(const Statement& row, int column) {
  return row.isNull(column) ? std::nullopt : std::optional(row.text(column));
}

RequestRecord requestOf(const Statement& row) {
  RequestRecord request{.seq = row.integer(0),
                        .receivedAt = row.real(1),
                        .method = row.text(2),
                        .path = row.text(3),
                        .endpoint = row.text(4),
                        .status = static_cast<int>(row.integer(5)),
                        .message = textOrNothing(row, 7),
                        .fault = textOrNothing(row, 8),
                        .bytes = row.integer(9),
                        .newEvents = row.integer(11),
                        .duplicates = row.integer(12),
                        .duration = row.real(13),
                        .attempt = row.integer(14),
                        .client = textOrNothing(row, 15),
                        .requestID = textOrNothing(row, 16),
                        .headers = row.text(17),
                        .hasBody = row.integer(18) != 0};
  if (!row.isNull(6)) request.errorCode = static_cast<int>(row.integer(6));
  if (!row.isNull(10)) request.unpackedBytes = row.integer(10);
  return request;
}

/// The first row, made a record.
template <class Record>
std::optional<Record> first(Statement& statement, Record (*make)(const Statement&)) {
  std::optional<Record> found;
  forEachRow(statement, [&](const Statement& row) {
    found = make(row);
    return false;
  });
  return found;
}

}  // namespace

SQLiteReader::SQLiteReader(const std::string& path)
    : _connection(path, Connection::Access::readOnly),
      _eventRange(_connection,
                  "SELECT (SELECT min(rowid) FROM events), (SELECT max(rowid) FROM events)"),
      _eventsUp(_connection, eventScan("ASC")),
      _eventsDown(_connection, eventScan("DESC")),
      _event(_connection, fmt::format("SELECT {} FROM events WHERE id = ?", eventColumns)),
      _eventBefore(_connection,
                   fmt::format("SELECT {} FROM events WHERE client_id = ? AND rowid < ? AND "
                               "rowid > ? ORDER BY rowid DESC LIMIT 1",
                               eventColumns)),
      _requestRange(_connection,
                    "SELECT (SELECT min(seq) FROM received_requests), "
                    "(SELECT max(seq) FROM received_requests)"),
      _requestsUp(_connection, requestScan("ASC")),
      _requestsDown(_connection, requestScan("DESC")),
      _body(_connection, "SELECT body FROM refused_bodies WHERE seq = ?"),
      _sessionRange(_connection,
                    "SELECT (SELECT min(seq) FROM sessions), (SELECT max(seq) FROM sessions)"),
      _sessions(_connection, fmt::format("SELECT {} FROM sessions WHERE seq BETWEEN ?1 AND ?2 AND "
                                         "(?3 IS NULL OR client_id = ?3) ORDER BY seq DESC",
                                         sessionColumns)),
      _sessionBefore(_connection, neighbour("<", "DESC")),
      _sessionAfter(_connection, neighbour(">", "ASC")),
      _clients(_connection,
               "SELECT client_id, app, events, (SELECT count(*) FROM sessions "
               "WHERE sessions.client_id = client_counts.client_id), first, last, tester "
               "FROM client_counts ORDER BY last DESC, client_id LIMIT ?"),
      _types(_connection,
             "SELECT type, events, duplicates, first, last FROM type_counts ORDER BY type"),
      _counts(_connection,
              "SELECT (SELECT 1 + max(seq) FROM received_requests) - (SELECT min(seq) FROM "
              "received_requests), (SELECT count(*) FROM "
              "received_requests WHERE error_code IS NOT NULL AND fault IS NULL), "
              "(SELECT count(*) FROM client_counts), (SELECT count(*) FROM sessions), "
              "max((SELECT seq FROM last_cleared), "
              "(SELECT coalesce(max(rowid), 0) FROM events))") {}

SeqRange SQLiteReader::rangeOf(Statement& statement) {
  SeqRange range;
  forEachRow(statement, [&range](const Statement& row) {
    range = {row.integer(0), row.integer(1)};
    return false;
  });
  return range;
}

void SQLiteReader::scanEvents(SeqRange range, Order order, const EventFilter& filter,
                              const std::function<bool(const EventRecord&)>& visit) {
  Statement& scan = order == Order::oldestFirst ? _eventsUp : _eventsDown;
  forEachRow(scan.with(range.first, range.last, filter.type, filter.client, filter.id),
             [&visit](const Statement& row) { return visit(eventOf(row)); });
}

std::optional<EventRecord> SQLiteReader::event(const std::string& id) {
  return first(_event.with(id), eventOf);
}

std::optional<EventRecord> SQLiteReader::eventBefore(const EventRecord& event) {
  return first(_eventBefore.with(event.client, event.seq, event.seq - farAway), eventOf);
}

void SQLiteReader::scanRequests(SeqRange range, Order order,
                                const std::function<bool(const RequestRecord&)>& visit) {
  Statement& scan = order == Order::oldestFirst ? _requestsUp : _requestsDown;
  forEachRow(scan.with(range.first, range.last),
             [&visit](const Statement& row) { return visit(requestOf(row)); });
}

std::optional<RequestRecord> SQLiteReader::request(Seq seq) {
  return first(_requestsUp.with(seq, seq), requestOf);
}

std::optional<std::string> SQLiteReader::refusedBody(Seq seq) {
  return first<std::string>(_body.with(seq), [](const Statement& row) { return row.text(0); });
}

void SQLiteReader::scanSessions(SeqRange range, const std::optional<std::string>& client,
                                const std::function<bool(const SessionRecord&)>& visit) {
  forEachRow(_sessions.with(range.first, range.last, client),
             [&visit](const Statement& row) { return visit(sessionOf(row)); });
}

std::optional<SessionRecord> SQLiteReader::sessionBefore(const SessionRecord& session) {
  return first(_sessionBefore.with(session.client, session.start, session.seq), sessionOf);
}

std::optional<SessionRecord> SQLiteReader::sessionAfter(const SessionRecord& session) {
  return first(_sessionAfter.with(session.client, session.start, session.seq), sessionOf);
}

std::vector<ClientRecord> SQLiteReader::clients(std::size_t limit) {
  std::vector<ClientRecord> clients;
  forEachRow(_clients.with(static_cast<std::int64_t>(limit)), [&clients](const Statement& row) {
    clients.push_back({.client = row.text(0),
                       .app = row.text(1),
                       .events = row.integer(2),
                       .sessions = row.integer(3),
                       .first = row.real(4),
                       .last = row.real(5),
                       .isTester = row.integer(6) != 0});
    return true;
  });
  return clients;
}

Totals SQLiteReader::totals() {
  Totals totals;
  forEachRow(_types, [&totals](const Statement& row) {
    totals.events += row.integer(1);
    totals.duplicates += row.integer(2);
    totals.byType.emplace_back(row.text(0), row.integer(1));
    totals.oldest = std::min(totals.oldest.value_or(row.real(3)), row.real(3));
    totals.newest = std::max(totals.newest.value_or(row.real(4)), row.real(4));
    return true;
  });
  forEachRow(_counts, [&totals](const Statement& row) {
    totals.requests = row.integer(0);
    totals.refused = row.integer(1);
    totals.clients = row.integer(2);
    totals.sessions = row.integer(3);
    totals.lastEvent = row.integer(4);
    return false;
  });
  return totals;
}

}  // namespace kite::tool
