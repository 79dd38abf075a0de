#include "Report/PrintReport.h"
#include "Report/Series.h"
#include "Report/Table.h"

#include <fmt/format.h>

namespace kite::tool {
namespace {

constexpr int barColumns = 16;

double shareOf(double part, double whole) { return whole > 0 ? part / whole : 0; }

std::string section(const std::string& headline, const std::string& body) {
  return fmt::format("\n{}\n\n{}", headline, body);
}

std::string dayTable(const Report& report, const std::vector<Series>& columns, Letters letters) {
  std::vector<Table::Column> kinds{Table::Column::text};
  std::vector<std::string> titles{"day"};
  std::vector<std::string> totals{"in all"};
  std::vector<std::vector<std::string>> rows;
  for (const DayFigures& day : report.days) rows.push_back({day.day});
  for (const Series& series : columns) {
    kinds.insert(kinds.end(), {Table::Column::number, Table::Column::bar});
    titles.insert(titles.end(), {series.title, ""});
    totals.insert(totals.end(), {series.text(report.total), ""});
    const double largest = series.hasBars ? series.largest(report) : 0;
    for (std::size_t i = 0; i < rows.size(); ++i) {
      const double share = shareOf(series.value(report.days[i]).value_or(0), largest);
      rows[i].push_back(series.text(report.days[i]));
      rows[i].push_back(bar(share, letters, barColumns));
    }
  }
  Table table(kinds);
  table.add(titles);
  for (auto& row : rows) table.add(std::move(row));
  table.add(totals);
  return table.text();
}

std::string actionTable(const Report& report, Letters letters) {
  Table table(
      {Table::Column::text, Table::Column::number, Table::Column::bar, Table::Column::number});
  table.add({"name", "actions", "", "clients"});
  for (const ActionRow& action : report.actions) {
    const double share = shareOf(static_cast<double>(action.actions),
                                 static_cast<double>(report.actions.front().actions));
    table.add({printable(action.name, letters, nameColumns), std::to_string(action.actions),
               bar(share, letters, barColumns), std::to_string(action.clients)});
  }
  table.add({"in all", std::to_string(report.actionTotals.actions), "", ""});
  return table.text();
}

std::string actionHeadline(const Report& report) {
  const auto shown = static_cast<std::int64_t>(report.actions.size());
  if (shown == report.actionTotals.names) return "Actions by name";
  return fmt::format("Actions by name, {} of {} names", shown, report.actionTotals.names);
}

}  // namespace

std::string tableReport(const Report& report, Letters letters) {
  return fmt::format("{} to {}, days of UTC\n", report.days.front().day, report.days.back().day) +
         section("Active clients and events",
                 dayTable(report, {clientSeries(), eventSeries()}, letters)) +
         section("Sessions that ended",
                 dayTable(report, {sessionSeries(), crashSeries(), crashRateSeries()}, letters)) +
         section("Installs and updates",
                 dayTable(report, {installSeries(), updateSeries()}, letters)) +
         section(actionHeadline(report), actionTable(report, letters));
}

}  // namespace kite::tool
