#include "Report/Series.h"

#include <fmt/format.h>

#include <algorithm>

namespace kite::tool {
namespace {

std::string countLabel(double count) { return fmt::format("{:.0f}", count); }
std::string rateLabel(double rate) { return fmt::format("{:.2f} %", rate * 100); }

template <std::int64_t DayFigures::*Member>
std::optional<double> count(const DayFigures& figures) {
  return static_cast<double>(figures.*Member);
}

}  // namespace

std::string Series::text(const DayFigures& figures) const {
  const auto number = value(figures);
  return number ? label(*number) : "-";
}

double Series::largest(const Report& report) const {
  double largest = 0;
  for (const DayFigures& day : report.days) largest = std::max(largest, value(day).value_or(0));
  return largest;
}

Series clientSeries() {
  return {.title = "clients", .value = count<&DayFigures::clients>, .label = countLabel};
}

Series eventSeries() {
  return {.title = "events", .value = count<&DayFigures::events>, .label = countLabel};
}

Series sessionSeries() {
  return {.title = "sessions", .value = count<&DayFigures::sessions>, .label = countLabel};
}

Series crashSeries() {
  return {.title = "crashes",
          .value = count<&DayFigures::crashes>,
          .label = countLabel,
          .hasBars = false};  // their rate has
}

Series crashRateSeries() {
  return {.title = "crash rate", .value = crashRate, .label = rateLabel, .smallestScale = 0.01};
}

Series installSeries() {
  return {.title = "installs", .value = count<&DayFigures::installs>, .label = countLabel};
}

Series updateSeries() {
  return {.title = "updates", .value = count<&DayFigures::updates>, .label = countLabel};
}

}  // namespace kite::tool
