#pragma once

#include <sys/types.h>
#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kite::test {

using Arguments = std::vector<std::string>;

/// A process, `kite` by default. It does not outlive its object. What goes wrong with it is thrown
/// as `std::runtime_error`, which fails the test.
class Process {
 public:
  struct Surroundings {
    std::optional<std::filesystem::path> output = {};  ///< else `receive` reads it
    std::filesystem::path errors;
    bool asNobody = false;  ///< without the rights of root, when the test has them
    std::optional<std::filesystem::path> program = {};  ///< else `kite`
  };

  Process(const Arguments& arguments, const Surroundings& surroundings);
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  void send(const std::string& line);
  void endInput();
  /// The next line of output; throws when none comes in time.
  std::string receive();
  /// All the rest of its output.
  std::string receiveAll();
  /// As `receive`, but nothing when the output has ended.
  std::optional<std::string> receiveMore();
  void signal(int number) const;
  /// Waits for the end: the exit status, or the signal's number negated.
  int wait();

 private:
  bool fill();

  pid_t _pid = -1;
  int _input = -1;
  int _output = -1;
  std::string _unread;
  std::optional<int> _status;
};

/// What a command that ends by itself leaves behind.
struct Finished {
  int status;
  std::string output;
  std::string errors;
};
Finished run(const Arguments& arguments, const std::string& input = "",
             const std::optional<std::filesystem::path>& program = {});

/// Polls until `isDone`; false after `seconds`.
bool eventually(const std::function<bool()>& isDone, double seconds = 20);

/// Seconds on a clock that only moves forward.
double now();
void pause(double seconds);

}  // namespace kite::test
