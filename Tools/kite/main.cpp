#include "Collector/CollectCommand.h"
#include "Common/CommandFailure.h"
#include "Demo/DemoCommand.h"
#include "Expect/ExpectCommand.h"
#include "Host/HostCommand.h"
#include "Queue/QueueCommand.h"
#include "Report/ReportCommand.h"
#include "Store/StoreCommand.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdio>
#include <exception>
#include <string>

namespace {

constexpr int wrongUsage = 2;

/// One line, whatever the message holds.
void complain(std::string message) {
  for (char& c : message) c = c == '\n' ? ' ' : c;
  fmt::print(stderr, "kite: {}\n", message);
}

int parsingEnded(const CLI::App& app, const CLI::ParseError& error) {
  if (dynamic_cast<const CLI::RuntimeError*>(&error)) return error.get_exit_code();
  if (error.get_exit_code() == 0) return app.exit(error);
  complain(error.what());
  return wrongUsage;
}

/// The commands run while their line is parsed.
int run(CLI::App& app, int count, char** arguments) {
  try {
    app.parse(count, arguments);
    return 0;
  } catch (const CLI::ParseError& error) {
    return parsingEnded(app, error);
  } catch (const std::exception& error) {
    complain(error.what());
    return 1;
  }
}

}  // namespace

int main(int count, char** arguments) {
  std::signal(SIGPIPE, SIG_IGN);  // a reader that left is an error of the write
  CLI::App app(
      "Kite on the command line: drive the library, collect its events, look into its stores",
      "kite");
  app.require_subcommand(1);
  kite::tool::addDemoCommand(app);
  kite::tool::addHostCommand(app);
  kite::tool::addCollectCommand(app);
  kite::tool::addExpectCommand(app);
  kite::tool::addReportCommand(app);
  kite::tool::addQueueCommand(app);
  kite::tool::addStoreCommand(app);
  return run(app, count, arguments);
}
