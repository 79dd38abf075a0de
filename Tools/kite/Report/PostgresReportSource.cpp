#include "Report/PostgresReportSource.h"

#include "Collector/Store/PostgresSchema.h"

#include <fmt/format.h>

namespace kite::tool {
namespace {

constexpr std::chrono::seconds untilConnected{10};
constexpr std::chrono::minutes patience{30};  // a report reads all that is kept

/// All is read as it was at one moment.
constexpr const char* oneMoment = "SET TRANSACTION ISOLATION LEVEL REPEATABLE READ, READ ONLY";

PostgresQuery ofView(const char* name, std::string_view columns) {
  return {name, fmt::format("SELECT to_char(day, 'YYYY-MM-DD'), {} FROM {} "
                            "WHERE day BETWEEN $1::date AND $2::date ORDER BY day",
                            columns, name)};
}

/// No event is of a day after the one on which it was received, so that older partitions are left
/// alone.
constexpr std::string_view inTheDays =
    "received_at >= extract(epoch FROM $1::date::timestamp)::double precision AND "
    "day_of(timestamp, received_at) BETWEEN $1::date AND $2::date";

std::string actionsInTheDays() {
  return fmt::format(
      "(SELECT coalesce(data ->> 'action_kind', '') AS name, client_id FROM events "
      "WHERE type = 'UserAction' AND {}) AS acted",
      inTheDays);
}

const std::string& checked(const std::string& url) {
  PostgresConnection connection(url, untilConnected);
  requireSchema(connection);
  return url;
}

}  // namespace

PostgresReportSource::PostgresReportSource(const std::string& url)
    : _connection(checked(url), patience), _transaction(_connection, oneMoment) {}

PostgresRows PostgresReportSource::read(const PostgresQuery& query, const DayRange& days) {
  _connection.startClock();
  return _connection.run(query, PostgresParameters(dayText(days.first), dayText(days.last)));
}

std::vector<CountRow> PostgresReportSource::countRows(const PostgresQuery& query,
                                                      const DayRange& days) {
  const PostgresRows rows = read(query, days);
  std::vector<CountRow> found;
  for (int row = 0; row < rows.count(); ++row) {
    found.push_back({rows.text(row, 0), rows.integer(row, 1), rows.integer(row, 2)});
  }
  return found;
}

std::vector<CountRow> PostgresReportSource::clientsAndEvents(const DayRange& days) {
  return countRows(ofView("daily_active_clients", "clients, events"), days);
}

std::vector<CountRow> PostgresReportSource::sessionsAndCrashes(const DayRange& days) {
  return countRows(ofView("crash_rate", "sessions, crashes"), days);
}

std::vector<CountRow> PostgresReportSource::installsAndUpdates(const DayRange& days) {
  return countRows(ofView("installs_and_updates", "installs, updates"), days);
}

std::int64_t PostgresReportSource::clients(const DayRange& days) {
  const PostgresQuery query{
      "clients", fmt::format("SELECT count(DISTINCT client_id) FROM events WHERE {}", inTheDays)};
  return read(query, days).integer(0, 0);
}

ActionTotals PostgresReportSource::actionTotals(const DayRange& days) {
  const PostgresQuery query{
      "action_totals",
      fmt::format("SELECT count(*), count(DISTINCT name) FROM {}", actionsInTheDays())};
  const PostgresRows rows = read(query, days);
  return {.actions = rows.integer(0, 0), .names = rows.integer(0, 1)};
}

std::vector<ActionRow> PostgresReportSource::actionsByName(const DayRange& days,
                                                           std::int64_t limit) {
  const PostgresQuery query{
      "actions", fmt::format("SELECT name, count(*), count(DISTINCT client_id) FROM {} "
                             "GROUP BY name ORDER BY count(*) DESC, name COLLATE \"C\" LIMIT {}",
                             actionsInTheDays(), limit)};
  std::vector<ActionRow> actions;
  for (CountRow& row : countRows(query, days)) {
    actions.push_back({std::move(row.key), row.first, row.second});
  }
  return actions;
}

}  // namespace kite::tool
