#include "Host/HostCommand.h"

#include "Common/CommandFailure.h"
#include "Common/WriteAll.h"
#include "Host/HostLocale.h"
#include "Host/Runner.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>
#include <CLI/CLI.hpp>

#include <cerrno>
#include <csignal>
#include <cstring>

namespace kite::tool {
namespace {

constexpr const char* footer =
    R"(Every line of the script is one JSON object {"op": "...", ...}; every line is answered with one on
standard output: {"ok":true}, {"ok":true,"value":...} or {"ok":false,"error":"..."}. The library
starts with the first {"op":"start"}. kite(1) lists the operations.)";

/// A script that was opened for reading, or standard input.
class Script {
 public:
  explicit Script(const std::optional<std::filesystem::path>& file) {
    if (!file) return;
    name = file->string();
    descriptor = ::open(name.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
      throw CommandFailure(fmt::format("cannot read {}: {}", name, std::strerror(errno)));
  }
  ~Script() {
    if (descriptor != STDIN_FILENO) ::close(descriptor);
  }
  Script(const Script&) = delete;
  Script& operator=(const Script&) = delete;

  int descriptor = STDIN_FILENO;
  std::string name = "standard input";
};

void runHost(const HostOptions& options) {
  if (options.timeZone) setTimeZone(*options.timeZone);
  const Script script(options.script);
  Host host(options);
  LineReader lines(script.descriptor);
  Runner runner(host, script.name);
  while (const auto line = lines.next()) {
    const auto answer = runner.answer(*line);
    writeAll(STDOUT_FILENO, answer.text + "\n");
    if (answer.next == Next::crash) ::kill(::getpid(), SIGKILL);
    if (answer.next == Next::quit) return;
  }
}

}  // namespace

CLI::App* addHostCommand(CLI::App& parent) {
  auto* command = parent.add_subcommand("host", "Drive the library by one JSON object per line");
  command->footer(footer);
  const auto options = addHostOptions(*command);
  command->callback([options] {
    if (options->key.empty() && !options->isNoop) throw CLI::RequiredError("--key");
    runHost(*options);
  });
  return command;
}

}  // namespace kite::tool
