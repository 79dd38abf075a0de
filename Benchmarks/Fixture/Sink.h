#pragma once

#include <Kite/Base/URL.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kite::bench {

/// A collection service on loopback that takes everything, in a process of its own.
class Sink {
 public:
  /// Certificates are made in `folder`.
  explicit Sink(const std::filesystem::path& folder) {
    int ends[2];
    if (::pipe(ends) != 0) throw std::runtime_error("no pipe to the sink");
    start(folder.string(), ends[1]);
    ::close(ends[1]);
    readAddress(ends[0]);
  }
  ~Sink() {
    ::kill(_process, SIGTERM);
    ::waitpid(_process, nullptr, 0);
  }
  Sink(const Sink&) = delete;
  Sink& operator=(const Sink&) = delete;

  const URL& url() const { return *_url; }
  const std::filesystem::path& caFile() const { return _caFile; }

 private:
  void start(std::string folder, int output) {
    std::string program = KITE_BENCH_SINK;
    char* const arguments[] = {program.data(), folder.data(), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    const int error =
        ::posix_spawn(&_process, program.c_str(), &actions, nullptr, arguments, environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) throw std::runtime_error("the sink cannot be started");
  }

  void readAddress(int input) {
    std::FILE* const lines = ::fdopen(input, "r");
    char url[256] = "";
    char caFile[4096] = "";
    const int found = std::fscanf(lines, "%255s %4095[^\n]", url, caFile);
    std::fclose(lines);
    if (found != 2) throw std::runtime_error("the sink does not tell its address");
    const auto parsed = URL::parse(url);
    if (!parsed) throw std::runtime_error("the sink tells no URL: " + parsed.error());
    _url = *parsed;
    _caFile = caFile;
  }

  pid_t _process = -1;
  std::optional<URL> _url;
  std::filesystem::path _caFile;
};

}  // namespace kite::bench
