#include "Demo/DemoCommand.h"

#include "Common/CommandFailure.h"
#include "Demo/Comparison.h"
#include "Demo/Day.h"
#include "Demo/DemoFolder.h"
#include "Demo/DemoReport.h"
#include "Demo/Stage.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <cstdio>
#include <memory>
#include <string>

namespace kite::tool {
namespace {

struct Options {
  std::size_t events = 600;
  std::string state;
  bool json = false;
};

/// Events that wait although the collector was there are those that it refuses.
void countRejected(Comparison& comparison, const std::vector<Event>& pending,
                   std::size_t refusals) {
  if (refusals == 0) return;
  comparison.problems.push_back(fmt::format("the collector refused {} requests", refusals));
  for (const auto& event : pending) ++comparison.byType[event.type].rejected;
}

void runDemo(const Options& options) {
  auto* const progress = options.json ? stderr : stdout;
  const auto folder = makeDemoFolder(options.state);
  fmt::print(progress, "Everything is kept in {}\n", folder.string());
  Stage stage(folder, progress);
  Day(stage, options.events).play();
  const auto& collector = stage.collector();
  const auto pending = pendingEvents(folder);
  auto comparison = compare(stage.ledger(), deliveredEvents(collector.database()));
  if (!pending.empty())
    comparison.problems.push_back(fmt::format("{} events still wait", pending.size()));
  countRejected(comparison, pending, collector.refusals());
  print(progress, comparison, collector.database());
  if (options.json) fmt::print("{}\n", jsonReport(comparison, collector.database()));
  if (!comparison.problems.empty()) throw CommandFailure("what arrived is not what was tracked");
}

}  // namespace

CLI::App* addDemoCommand(CLI::App& parent) {
  auto* command = parent.add_subcommand(
      "demo", "Play a day of an application against a collector, and check what arrives");
  const auto options = std::make_shared<Options>();
  command->add_option("--events", options->events, "How many events the application tracks")
      ->type_name("N")
      ->check(CLI::Range(std::size_t{1}, std::size_t{1'000'000}).description(""))
      ->capture_default_str();
  command
      ->add_option("--state", options->state,
                   "The folder to keep everything in, else a new one in the temporary folder")
      ->type_name("DIR");
  command->add_flag("--json", options->json, "Print the result as one JSON object");
  command->callback([options] { runDemo(*options); });
  return command;
}

}  // namespace kite::tool
