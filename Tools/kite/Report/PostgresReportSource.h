#pragma once

#include "Collector/Store/PostgresConnection.h"
#include "Report/ReportSource.h"

namespace kite::tool {

/// Reads a database that collectors share, with the rights of a reader.
class PostgresReportSource final : public ReportSource {
 public:
  /// Throws a `StoreError` when the database cannot be used.
  explicit PostgresReportSource(const std::string& url);

  std::vector<CountRow> clientsAndEvents(const DayRange& days) override;
  std::vector<CountRow> sessionsAndCrashes(const DayRange& days) override;
  std::vector<CountRow> installsAndUpdates(const DayRange& days) override;
  std::int64_t clients(const DayRange& days) override;
  ActionTotals actionTotals(const DayRange& days) override;
  std::vector<ActionRow> actionsByName(const DayRange& days, std::int64_t limit) override;

 private:
  PostgresRows read(const PostgresQuery& query, const DayRange& days);
  std::vector<CountRow> countRows(const PostgresQuery& query, const DayRange& days);

  PostgresConnection _connection;
  PostgresTransaction _transaction;
};

}  // namespace kite::tool
