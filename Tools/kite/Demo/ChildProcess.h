#pragma once

#include <sys/types.h>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace kite::tool {

/// Another `kite` of this executable. It does not outlive its object, nor the process.
class ChildProcess {
 public:
  struct Streams {
    /// Standard output goes to this file, or else to `readLine`.
    std::optional<std::filesystem::path> output;
    std::filesystem::path errors;  ///< appended to
  };

  ChildProcess(const std::vector<std::string>& arguments, const Streams& streams);
  /// Kills it.
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  void writeLine(const std::string& line);
  /// Throws `CommandFailure` when none comes within half a minute.
  std::string readLine();
  /// Waits for the end; gives the exit status, or the number of the signal negated.
  int wait();
  bool hasEnded();

 private:
  bool fill();

  pid_t _pid = -1;
  int _input = -1;   // this process writes here
  int _output = -1;  // and reads here
  std::string _unread;
  std::optional<int> _status;
};

}  // namespace kite::tool
