#include "Demo/DemoCommand.h"

#include "Common/CommandFailure.h"
#include "Demo/Comparison.h"
#include "Demo/Day.h"
#include "Demo/DemoFolder.h"
#include "Demo/DemoReport.h"
#include "Demo/NextSteps.h"
#include "Demo/Stage.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdio>
#include <memory>
#include <string>

namespace kite::tool {
namespace {

struct DemoOptions {
  std::size_t events = 600;
  std::string state;
  bool json = false;
  bool inspect = false;
};

/// Events that wait although the collector was there are those that it refuses.
void countRejected(Comparison& comparison, const std::vector<Event>& pending,
                   std::size_t refusals) {
  if (refusals == 0) return;
  comparison.problems.push_back(fmt::format("the collector refused {} requests", refusals));
  for (const auto& event : pending) ++comparison.byType[event.type].rejected;
}

struct PlayedDay {
  Comparison comparison;
  std::filesystem::path database;
  std::string address;  ///< where the collector was
};

PlayedDay playDay(Stage& stage, std::size_t events) {
  Day(stage, events).play();
  const auto& collector = stage.collector();
  const auto pending = pendingEvents(stage.folder());
  auto comparison = compare(stage.ledger(), deliveredEvents(collector.database()));
  if (!pending.empty())
    comparison.problems.push_back(fmt::format("{} events still wait", pending.size()));
  countRejected(comparison, pending, collector.refusals());
  return {.comparison = std::move(comparison),
          .database = collector.database(),
          .address = collector.address()};
}

void tell(const Audience& results, const std::string& line) {
  fmt::print(results.out, "{}\n", line);
  std::fflush(results.out);
}

void waitForInterrupt() {
  sigset_t ends{};
  ::sigemptyset(&ends);
  ::sigaddset(&ends, SIGINT);
  ::sigaddset(&ends, SIGTERM);
  ::pthread_sigmask(SIG_BLOCK, &ends, nullptr);
  int signal = 0;
  ::sigwait(&ends, &signal);
}

void runDemo(const DemoOptions& options) {
  const Audience results(options.json ? stderr : stdout);
  const auto folder = makeDemoFolder(options.state);
  tell(results, fmt::format("Everything is kept in {}", folder.string()));
  Stage stage(folder, Audience(stderr), options.events, options.inspect);
  const std::string page = stage.collector().page();
  if (options.inspect) tell(results, "Watch it at " + page);
  const auto day = playDay(stage, options.events);
  print(results, day.comparison, day.database);
  if (options.json) fmt::print("{}\n", jsonReport(day.comparison, day.database));
  if (!day.comparison.problems.empty())
    throw CommandFailure("what arrived is not what was tracked");
  if (options.inspect) {
    std::fflush(stdout);
    tell(results, fmt::format("The day is shown at {} until Ctrl-C", page));
    waitForInterrupt();
  }
  printNextSteps(results, folder, day.address);
}

}  // namespace

CLI::App* addDemoCommand(CLI::App& parent) {
  auto* command = parent.add_subcommand(
      "demo", "Play a day of an application against a collector, and check what arrives");
  const auto options = std::make_shared<DemoOptions>();
  command->add_option("--events", options->events, "How many events the application tracks")
      ->type_name("N")
      ->check(CLI::Range(std::size_t{1}, std::size_t{1'000'000}).description(""))
      ->capture_default_str();
  command
      ->add_option("--state", options->state,
                   "The folder to keep everything in, else a new one in the temporary folder")
      ->type_name("DIR");
  command->add_flag("--json", options->json, "Print the result as one JSON object");
  command->add_flag("--inspect", options->inspect,
                    "Show what arrives on a page, which stays until Ctrl-C");
  command->callback([options] { runDemo(*options); });
  return command;
}

}  // namespace kite::tool
