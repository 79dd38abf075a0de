#include <Kite/Linux/KiteApplication.h>
#include <poll.h>
#include <syslog.h>

#include <cerrno>
#include <cstdlib>
#include <iostream>
#include <string>

using namespace std::chrono_literals;

namespace {

void writeToLog(std::string_view line) { ::syslog(LOG_WARNING, "%s", std::string(line).c_str()); }

}  // namespace

int main() {
  const char* const folder = std::getenv("STATE_DIRECTORY");  // systemd sets it
  if (folder == nullptr) return std::cerr << "no STATE_DIRECTORY\n", 1;
  const std::string state = folder;
  const auto app = kite::Linux::KiteApplication::start({.name = "mail-sorter",
                                                        .version = "1.0",
                                                        .dataFolder = state + "/kite",
                                                        .secretsFolder = state + "/kite-secrets",
                                                        .drainLimits = {.deliverWithin = 2s},
                                                        .drainOnSignals = true,
                                                        .print = writeToLog});
  if (!app) return std::cerr << app.error() << '\n', 1;
  app->kite().trackUserAction("ready", {});
  // The daemon's work. A signal interrupts it, but `main` goes on: the library's thread drains and
  // then lets the signal end the process.
  while (::poll(nullptr, 0, -1) >= 0 || errno == EINTR) {
  }
}
