#include "Report/Report.h"

#include <fmt/format.h>

#include <algorithm>

namespace kite::tool {
namespace {

using Count = std::int64_t DayFigures::*;

void add(Report& report, const std::vector<CountRow>& rows, Count first, Count second) {
  for (const CountRow& row : rows) {
    const auto day = std::ranges::lower_bound(report.days, row.key, {}, &DayFigures::day);
    if (day == report.days.end() || day->day != row.key) continue;
    (*day).*first = row.first;
    (*day).*second = row.second;
    report.total.*first += row.first;
    report.total.*second += row.second;
  }
}

}  // namespace

std::string dayText(std::chrono::sys_days day) {
  const std::chrono::year_month_day date(day);
  return fmt::format("{:04}-{:02}-{:02}", static_cast<int>(date.year()),
                     static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()));
}

Report makeReport(ReportSource& source, const DayRange& days) {
  Report report;
  for (auto day = days.first; day <= days.last; day += std::chrono::days(1)) {
    report.days.push_back({.day = dayText(day)});
  }
  add(report, source.clientsAndEvents(days), &DayFigures::clients, &DayFigures::events);
  add(report, source.sessionsAndCrashes(days), &DayFigures::sessions, &DayFigures::crashes);
  add(report, source.installsAndUpdates(days), &DayFigures::installs, &DayFigures::updates);
  report.total.clients = source.clients(days);
  report.actions = source.actionsByName(days, mostActionsInAReport);
  report.actionTotals = source.actionTotals(days);
  return report;
}

std::optional<double> crashRate(const DayFigures& figures) {
  if (figures.sessions == 0) return std::nullopt;
  return static_cast<double>(figures.crashes) / static_cast<double>(figures.sessions);
}

}  // namespace kite::tool
