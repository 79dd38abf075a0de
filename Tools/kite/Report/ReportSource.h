#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace kite::tool {

/// Days of UTC in a row, both ends included.
struct DayRange {
  std::chrono::sys_days first;
  std::chrono::sys_days last;
};

/// A day such as 2026-11-23; these texts order as the days do.
std::string dayText(std::chrono::sys_days day);

/// Two counts of one day, or of what else the key names.
struct CountRow {
  std::string key;
  std::int64_t first = 0;
  std::int64_t second = 0;
};

struct ActionRow {
  std::string name;
  std::int64_t actions = 0;
  std::int64_t clients = 0;

  friend bool operator==(const ActionRow&, const ActionRow&) = default;
};

struct ActionTotals {
  std::int64_t actions = 0;
  std::int64_t names = 0;
};

/// What a report asks of a collector's store. All answers are of one moment. Days without events
/// have no rows. Every operation may throw a `StoreError`.
class ReportSource {
 public:
  virtual ~ReportSource() = default;

  virtual std::vector<CountRow> clientsAndEvents(const DayRange& days) = 0;
  /// Sessions that ended, and those among them that crashed.
  virtual std::vector<CountRow> sessionsAndCrashes(const DayRange& days) = 0;
  virtual std::vector<CountRow> installsAndUpdates(const DayRange& days) = 0;
  /// Each is counted once, however many days it was active on.
  virtual std::int64_t clients(const DayRange& days) = 0;
  virtual ActionTotals actionTotals(const DayRange& days) = 0;
  /// The most frequent first; those that are equally frequent by the bytes of their names.
  virtual std::vector<ActionRow> actionsByName(const DayRange& days, std::int64_t limit) = 0;
};

}  // namespace kite::tool
