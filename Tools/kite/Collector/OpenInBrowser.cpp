#include "Collector/OpenInBrowser.h"

#include <spawn.h>
#include <unistd.h>

#include <array>
#include <csignal>

namespace kite::tool {

bool openInBrowser(const std::string& url) {
  std::string program = "xdg-open";
  std::string address = url;
  const std::array<char*, 3> arguments{program.data(), address.data(), nullptr};
  posix_spawnattr_t attributes{};
  posix_spawn_file_actions_t streams{};
  sigset_t none{};
  ::sigemptyset(&none);
  ::posix_spawnattr_init(&attributes);
  ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
  ::posix_spawnattr_setsigmask(&attributes, &none);
  ::posix_spawn_file_actions_init(&streams);
  // Standard output is the collector's: one line of JSON after the other.
  ::posix_spawn_file_actions_adddup2(&streams, STDERR_FILENO, STDOUT_FILENO);
  pid_t process = 0;
  const int error =
      ::posix_spawnp(&process, program.c_str(), &streams, &attributes, arguments.data(), environ);
  ::posix_spawn_file_actions_destroy(&streams);
  ::posix_spawnattr_destroy(&attributes);
  return error == 0;
}

}  // namespace kite::tool
