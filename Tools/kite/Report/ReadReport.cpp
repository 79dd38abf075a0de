#include "Report/PostgresReportSource.h"
#include "Report/Report.h"
#include "Report/SQLiteReportSource.h"

#include <fmt/format.h>

#include <filesystem>

namespace kite::tool {
namespace {

using Access = Connection::Access;

/// What changes when somebody writes to a SQLite file.
struct FileState {
  bool hasLog;
  std::uintmax_t size;
  std::filesystem::file_time_type changed;

  friend bool operator==(const FileState&, const FileState&) = default;
};

FileState stateOf(const std::string& path) {
  std::error_code error;
  const auto status = std::filesystem::status(path, error);
  if (!std::filesystem::exists(status)) throw StoreError("there is no such file");
  if (!std::filesystem::is_regular_file(status)) throw StoreError("it is no file");
  FileState state{.hasLog = std::filesystem::exists(path + "-wal", error),
                  .size = std::filesystem::file_size(path, error),
                  .changed = std::filesystem::last_write_time(path, error)};
  if (error) throw StoreError(error.message());
  return state;
}

Report readWith(Access access, const std::string& path, const DayRange& days) {
  SQLiteReportSource source(path, access);
  return makeReport(source, days);
}

/// A file that no collector has open is read without the log that SQLite would leave beside it.
/// Nothing when somebody wrote meanwhile.
std::optional<Report> readAtRest(const std::string& path, const DayRange& days) {
  const FileState before = stateOf(path);
  if (before.hasLog) return std::nullopt;
  try {
    Report report = readWith(Access::readOnlyAtRest, path, days);
    if (stateOf(path) == before) return report;
  } catch (const StoreError&) {
    if (stateOf(path) == before) throw;
  }
  return std::nullopt;
}

Report readSQLite(const std::string& path, const DayRange& days) {
  if (auto report = readAtRest(path, days)) return *std::move(report);
  return readWith(Access::readOnly, path, days);
}

Report readPostgres(const std::string& url, const DayRange& days) {
  try {
    PostgresReportSource source(url);
    return makeReport(source, days);
  } catch (const PostgresRefusal& refusal) {
    if (!refusal.isOfRights()) throw;
    throw StoreError(fmt::format("{}: grant its user the role kite_reader", refusal.what()));
  }
}

}  // namespace

Report readReport(const std::string& place, const DayRange& days) {
  return isPostgresAddress(place) ? readPostgres(place, days) : readSQLite(place, days);
}

}  // namespace kite::tool
