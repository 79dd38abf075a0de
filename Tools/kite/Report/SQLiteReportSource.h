#pragma once

#include "Collector/Store/Statement.h"
#include "Report/ReportSource.h"

namespace kite::tool {

/// Reads the file of a collector, which may write to it meanwhile unless the access says otherwise.
class SQLiteReportSource final : public ReportSource {
 public:
  /// Throws a `StoreError` when that is no collector's file.
  SQLiteReportSource(const std::string& path, Connection::Access access);

  std::vector<CountRow> clientsAndEvents(const DayRange& days) override;
  std::vector<CountRow> sessionsAndCrashes(const DayRange& days) override;
  std::vector<CountRow> installsAndUpdates(const DayRange& days) override;
  std::int64_t clients(const DayRange& days) override;
  ActionTotals actionTotals(const DayRange& days) override;
  std::vector<ActionRow> actionsByName(const DayRange& days, std::int64_t limit) override;

 private:
  std::vector<CountRow> rows(std::string_view sql, const DayRange& days);

  Connection _connection;
};

}  // namespace kite::tool
