#include "Collector/Store/PostgresReader.h"

#include "Collector/Store/PostgresEvents.h"
#include "Collector/Store/PostgresRecords.h"
#include "Collector/Store/PostgresSchema.h"
#include "Collector/Store/PostgresTallies.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>

namespace kite::tool {
namespace {

constexpr std::chrono::seconds patience{10};
constexpr Seq farAway = 50'000;  // numbers between two events of a client
constexpr int rowsAtOnce = 500;

std::string eventScan(std::string_view order) {
  return fmt::format(
      "SELECT {} FROM events WHERE seq BETWEEN $1 AND $2 AND ($3::text IS NULL OR type = $3) AND "
      "($4::text IS NULL OR client_id = $4) AND ($5::text IS NULL OR id = $5) "
      "ORDER BY seq {} LIMIT {}",
      eventColumnsOfPostgres, order, rowsAtOnce);
}

std::string requestScan(std::string_view order) {
  return fmt::format(
      "SELECT {} FROM received_requests WHERE seq BETWEEN $1 AND $2 ORDER BY seq {} LIMIT {}",
      requestColumnsOfPostgres, order, rowsAtOnce);
}

std::string neighbour(std::string_view comparison, std::string_view order) {
  return fmt::format(
      "SELECT {0} FROM sessions WHERE client_id = $1 AND (started, seq) {1} ($2, $3) "
      "ORDER BY started {2}, seq {2} LIMIT 1",
      sessionColumnsOfPostgres, comparison, order);
}

const PostgresQuery eventRange{"event_range", settledNumbers};
const PostgresQuery eventsUp{"events_up", eventScan("ASC")};
const PostgresQuery eventsDown{"events_down", eventScan("DESC")};
const PostgresQuery oneEvent{"one_event",
                             fmt::format("SELECT {} FROM events WHERE (seq, received_at) = "
                                         "(SELECT seq, received_at FROM identifiers WHERE id = $1)",
                                         eventColumnsOfPostgres)};
const PostgresQuery eventBeforeIt{
    "event_before",
    fmt::format("SELECT {} FROM events WHERE client_id = $1 AND seq < $2 AND seq > $3 "
                "ORDER BY seq DESC LIMIT 1",
                eventColumnsOfPostgres)};
const PostgresQuery requestRange{"request_range",
                                 "SELECT coalesce(min(seq), 0), coalesce(max(seq), 0) "
                                 "FROM received_requests"};
const PostgresQuery requestsUp{"requests_up", requestScan("ASC")};
const PostgresQuery requestsDown{"requests_down", requestScan("DESC")};
const PostgresQuery bodyOf{"body", "SELECT encode(body, 'hex') FROM refused_bodies WHERE seq = $1"};
const PostgresQuery sessionRange{
    "session_range", "SELECT coalesce(min(seq), 0), coalesce(max(seq), 0) FROM sessions"};
const PostgresQuery sessionScan{
    "sessions", fmt::format("SELECT {} FROM sessions WHERE seq BETWEEN $1 AND $2 AND "
                            "($3::text IS NULL OR client_id = $3) ORDER BY seq DESC LIMIT {}",
                            sessionColumnsOfPostgres, rowsAtOnce)};
const PostgresQuery earlierSession{"session_before", neighbour("<", "DESC")};
const PostgresQuery laterSession{"session_after", neighbour(">", "ASC")};
const PostgresQuery newestClients{
    "clients",
    "SELECT client_id, app, events, (SELECT count(*) FROM sessions "
    "WHERE sessions.client_id = clients.client_id), first, last, tester "
    "FROM clients WHERE events > 0 ORDER BY last DESC, client_id LIMIT $1"};
const PostgresQuery typeTotals{
    "types",
    "SELECT type, sum(events), sum(duplicates), min(first), max(last) FROM type_counts "
    "GROUP BY type ORDER BY type COLLATE \"C\""};
const PostgresQuery otherTotals{
    "totals",
    "SELECT (SELECT coalesce(1 + max(seq) - min(seq), 0) FROM received_requests), "
    "(SELECT count(*) FROM received_requests WHERE error_code IS NOT NULL AND fault IS NULL), "
    "(SELECT count(*) FROM clients WHERE events > 0), (SELECT count(*) FROM sessions), "
    "(SELECT last_value FROM event_numbers)"};

template <class Record>
std::optional<Record> first(const PostgresRows& rows, Record (*make)(const PostgresRows&, int)) {
  return rows.count() > 0 ? std::optional(make(rows, 0)) : std::nullopt;
}

/// Reads rows in pieces until a piece is not full, or the visitor has enough: it may ask the same
/// connection for others meanwhile.
template <class Record, class Read>
void scan(SeqRange range, Order order, Record (*make)(const PostgresRows&, int), const Read& read,
          const std::function<bool(const Record&)>& visit) {
  while (range.first <= range.last) {
    const PostgresRows rows = read(range);
    for (int row = 0; row < rows.count(); ++row) {
      const Record record = make(rows, row);
      if (!visit(record)) return;
      order == Order::oldestFirst ? range.first = record.seq + 1 : range.last = record.seq - 1;
    }
    if (rows.count() < rowsAtOnce) return;
  }
}

}  // namespace

PostgresReader::PostgresReader(const std::string& url) : _connection(url, patience) {
  requireSchema(_connection);
}

PostgresRows PostgresReader::read(const PostgresQuery& query,
                                  const PostgresParameters& parameters) {
  _connection.startClock();
  return _connection.run(query, parameters);
}

SeqRange PostgresReader::range(const PostgresQuery& query) {
  const auto rows = read(query, PostgresParameters());
  return {rows.integer(0, 0), rows.integer(0, 1)};
}

SeqRange PostgresReader::events() {
  const SeqRange settled = range(eventRange);
  return settled.first <= settled.last ? settled : SeqRange{};
}

void PostgresReader::scanEvents(SeqRange within, Order order, const EventFilter& filter,
                                const std::function<bool(const EventRecord&)>& visit) {
  const PostgresQuery& query = order == Order::oldestFirst ? eventsUp : eventsDown;
  const auto piece = [&](SeqRange rest) {
    return read(query,
                PostgresParameters(rest.first, rest.last, filter.type, filter.client, filter.id));
  };
  scan<EventRecord>(within, order, eventOf, piece, visit);
}

std::optional<EventRecord> PostgresReader::event(const std::string& id) {
  return first<EventRecord>(read(oneEvent, PostgresParameters(identifierOf(id))), eventOf);
}

std::optional<EventRecord> PostgresReader::eventBefore(const EventRecord& event) {
  const PostgresParameters parameters(event.client, event.seq, event.seq - farAway);
  return first<EventRecord>(read(eventBeforeIt, parameters), eventOf);
}

SeqRange PostgresReader::requests() { return range(requestRange); }

void PostgresReader::scanRequests(SeqRange within, Order order,
                                  const std::function<bool(const RequestRecord&)>& visit) {
  const PostgresQuery& query = order == Order::oldestFirst ? requestsUp : requestsDown;
  const auto piece = [&](SeqRange rest) {
    return read(query, PostgresParameters(rest.first, rest.last));
  };
  scan<RequestRecord>(within, order, requestOf, piece, visit);
}

std::optional<RequestRecord> PostgresReader::request(Seq seq) {
  return first<RequestRecord>(read(requestsUp, PostgresParameters(seq, seq)), requestOf);
}

std::optional<std::string> PostgresReader::refusedBody(Seq seq) {
  const auto rows = read(bodyOf, PostgresParameters(seq));
  if (rows.count() == 0) return std::nullopt;
  return bytesOf(rows.text(0, 0));
}

SeqRange PostgresReader::sessions() { return range(sessionRange); }

void PostgresReader::scanSessions(SeqRange within, const std::optional<std::string>& client,
                                  const std::function<bool(const SessionRecord&)>& visit) {
  const auto piece = [&](SeqRange rest) {
    return read(sessionScan, PostgresParameters(rest.first, rest.last, client));
  };
  scan<SessionRecord>(within, Order::newestFirst, sessionOf, piece, visit);
}

std::optional<SessionRecord> PostgresReader::sessionBefore(const SessionRecord& session) {
  const PostgresParameters parameters(session.client, session.start, session.seq);
  return first<SessionRecord>(read(earlierSession, parameters), sessionOf);
}

std::optional<SessionRecord> PostgresReader::sessionAfter(const SessionRecord& session) {
  const PostgresParameters parameters(session.client, session.start, session.seq);
  return first<SessionRecord>(read(laterSession, parameters), sessionOf);
}

std::vector<ClientRecord> PostgresReader::clients(std::size_t limit) {
  const auto rows =
      read(newestClients, PostgresParameters(static_cast<std::int64_t>(std::min<std::size_t>(
                              limit, std::numeric_limits<std::int32_t>::max()))));
  std::vector<ClientRecord> clients;
  for (int row = 0; row < rows.count(); ++row) {
    clients.push_back({.client = rows.text(row, 0),
                       .app = rows.text(row, 1),
                       .events = rows.integer(row, 2),
                       .sessions = rows.integer(row, 3),
                       .first = rows.real(row, 4),
                       .last = rows.real(row, 5),
                       .isTester = rows.flag(row, 6)});
  }
  return clients;
}

Totals PostgresReader::totals() {
  Totals totals;
  const auto types = read(typeTotals, PostgresParameters());
  for (int row = 0; row < types.count(); ++row) {
    totals.events += types.integer(row, 1);
    totals.duplicates += types.integer(row, 2);
    totals.byType.emplace_back(types.text(row, 0), types.integer(row, 1));
    if (types.isNull(row, 3)) continue;
    totals.oldest = std::min(totals.oldest.value_or(types.real(row, 3)), types.real(row, 3));
    totals.newest = std::max(totals.newest.value_or(types.real(row, 4)), types.real(row, 4));
  }
  const auto others = read(otherTotals, PostgresParameters());
  totals.requests = others.integer(0, 0);
  totals.refused = others.integer(0, 1);
  totals.clients = others.integer(0, 2);
  totals.sessions = others.integer(0, 3);
  // The first number is nobody's.
  const Seq lastEvent = events().last;
  const Seq lastNumber = others.integer(0, 4);
  totals.lastEvent = lastEvent > 0 ? lastEvent : lastNumber > 1 ? lastNumber : 0;
  return totals;
}

}  // namespace kite::tool
