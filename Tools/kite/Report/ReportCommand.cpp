#include "Report/ReportCommand.h"

#include "Collector/MigrateCommand.h"
#include "Collector/Store/EventStore.h"
#include "Collector/Store/PostgresAddress.h"
#include "Common/CommandFailure.h"
#include "Common/WriteAll.h"
#include "Report/PrintReport.h"
#include "Report/ReplaceFile.h"

#include <fmt/format.h>
#include <unistd.h>
#include <CLI/CLI.hpp>

#include <memory>

namespace kite::tool {
namespace {

constexpr int mostDays = 3650;

struct ReportOptions {
  std::string database;
  int days = 7;
  bool isJSON = false;
  std::optional<std::string> plot;
};

DayRange lastDays(int count) {
  const auto today = std::chrono::floor<std::chrono::days>(std::chrono::system_clock::now());
  return {.first = today - std::chrono::days(count - 1), .last = today};
}

Report reportOf(const ReportOptions& options) {
  try {
    return readReport(options.database, lastDays(options.days));
  } catch (const StoreError& error) {
    throw CommandFailure(fmt::format("cannot read the database {}: {}",
                                     withoutPassword(options.database), error.what()));
  }
}

void runReport(const ReportOptions& options) {
  if (options.plot && !options.plot->ends_with(".svg")) {
    throw CLI::ValidationError("--plot: \"" + *options.plot + "\" does not end with .svg");
  }
  const Report report = reportOf(options);
  if (options.plot) replaceFile(*options.plot, svgReport(report));
  writeAll(STDOUT_FILENO,
           options.isJSON ? jsonReport(report) : tableReport(report, lettersOfLocale()));
}

}  // namespace

CLI::App* addReportCommand(CLI::App& parent) {
  const auto options = std::make_shared<ReportOptions>();
  CLI::App* command = parent.add_subcommand(
      "report", "Print what a collector has stored in the last days: clients, sessions, actions");
  command
      ->add_option("--db", options->database,
                   "SQLite file of a collector, or postgresql://… without a password")
      ->type_name("FILE|URL")
      ->required();
  addPasswordFile(*command);
  command->add_option("--days", options->days, "How many days of UTC, today among them")
      ->type_name("N")
      ->check(CLI::Range(1, mostDays).description(""))
      ->capture_default_str();
  command->add_flag("--json", options->isJSON, "Print one JSON object instead of tables");
  command->add_option("--plot", options->plot, "Draw the days into this file as well")
      ->type_name("FILE.svg");
  command->callback([options] { runReport(*options); });
  return command;
}

}  // namespace kite::tool
