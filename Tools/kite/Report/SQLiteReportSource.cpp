#include "Report/SQLiteReportSource.h"

#include <fmt/format.h>

namespace kite::tool {
namespace {

/// The day as the views have it.
constexpr std::string_view inTheDays =
    "date(min(max(timestamp, 0), received_at), 'unixepoch') BETWEEN ?1 AND ?2";

std::string actionsInTheDays() {
  return fmt::format(
      "(SELECT coalesce(json_extract(data, '$.action_kind'), '') AS name, client_id FROM events "
      "WHERE type = 'UserAction' AND {})",
      inTheDays);
}

void requireTables(Connection& connection) {
  Statement count(connection,
                  "SELECT count(*) FILTER (WHERE type = 'table'), "
                  "count(*) FILTER (WHERE type = 'view') FROM sqlite_master WHERE name IN "
                  "('events', 'requests', 'daily_active_clients', 'crash_rate', "
                  "'installs_and_updates')");
  count.step();
  if (count.integer(0) < 2) throw StoreError("it is no database of a collector");
  if (count.integer(1) < 3) {
    throw StoreError("it was written by an older program: run \"kite collect\" on it once");
  }
}

}  // namespace

SQLiteReportSource::SQLiteReportSource(const std::string& path, Connection::Access access)
    : _connection(path, access) {
  _connection.execute("BEGIN");  // ends with the connection
  requireTables(_connection);
}

std::vector<CountRow> SQLiteReportSource::rows(std::string_view sql, const DayRange& days) {
  const std::string first = dayText(days.first);
  const std::string last = dayText(days.last);
  Statement statement(_connection, sql);
  std::vector<CountRow> found;
  forEachRow(statement.with(first, last), [&found](const Statement& row) {
    found.push_back({row.text(0), row.integer(1), row.integer(2)});
    return true;
  });
  return found;
}

std::vector<CountRow> SQLiteReportSource::clientsAndEvents(const DayRange& days) {
  return rows("SELECT day, clients, events FROM daily_active_clients WHERE day BETWEEN ? AND ?",
              days);
}

std::vector<CountRow> SQLiteReportSource::sessionsAndCrashes(const DayRange& days) {
  return rows("SELECT day, sessions, crashes FROM crash_rate WHERE day BETWEEN ? AND ?", days);
}

std::vector<CountRow> SQLiteReportSource::installsAndUpdates(const DayRange& days) {
  return rows("SELECT day, installs, updates FROM installs_and_updates WHERE day BETWEEN ? AND ?",
              days);
}

std::int64_t SQLiteReportSource::clients(const DayRange& days) {
  const auto sql =
      fmt::format("SELECT '', count(DISTINCT client_id), 0 FROM events WHERE {}", inTheDays);
  return rows(sql, days).front().first;
}

ActionTotals SQLiteReportSource::actionTotals(const DayRange& days) {
  const auto sql =
      fmt::format("SELECT '', count(*), count(DISTINCT name) FROM {}", actionsInTheDays());
  const CountRow totals = rows(sql, days).front();
  return {.actions = totals.first, .names = totals.second};
}

std::vector<ActionRow> SQLiteReportSource::actionsByName(const DayRange& days, std::int64_t limit) {
  const auto sql = fmt::format(
      "SELECT name, count(*), count(DISTINCT client_id) FROM {} GROUP BY name "
      "ORDER BY count(*) DESC, name LIMIT {}",
      actionsInTheDays(), limit);
  std::vector<ActionRow> actions;
  for (CountRow& row : rows(sql, days))
    actions.push_back({std::move(row.key), row.first, row.second});
  return actions;
}

}  // namespace kite::tool
