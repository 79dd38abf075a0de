#pragma once

#include "Report/ReportSource.h"

#include <optional>

namespace kite::tool {

inline constexpr std::int64_t mostActionsInAReport = 20;

struct DayFigures {
  std::string day = {};
  std::int64_t clients = 0;
  std::int64_t events = 0;
  std::int64_t sessions = 0;  ///< that ended
  std::int64_t crashes = 0;
  std::int64_t installs = 0;
  std::int64_t updates = 0;

  friend bool operator==(const DayFigures&, const DayFigures&) = default;
};

struct Report {
  std::vector<DayFigures> days = {};    ///< every day of the range, in their order
  DayFigures total = {};                ///< with each client counted once
  std::vector<ActionRow> actions = {};  ///< the most frequent ones
  ActionTotals actionTotals = {};
};

Report makeReport(ReportSource& source, const DayRange& days);

/// Of a collector's store, by its place; nothing there is made or changed. Throws a `StoreError`.
Report readReport(const std::string& place, const DayRange& days);

/// How many of the sessions crashed; nothing when there were none.
std::optional<double> crashRate(const DayFigures& figures);

}  // namespace kite::tool
