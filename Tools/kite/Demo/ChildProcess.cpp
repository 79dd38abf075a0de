#include "Demo/ChildProcess.h"

#include "Common/CommandFailure.h"
#include "Common/WriteAll.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>

namespace kite::tool {
namespace {

constexpr int longestSilence = 30'000;  // milliseconds

struct Pipe {
  Pipe() {
    if (::pipe2(ends.data(), O_CLOEXEC) != 0)
      throw CommandFailure(fmt::format("cannot make a pipe: {}", std::strerror(errno)));
  }
  std::array<int, 2> ends{-1, -1};  // to read from, to write to
};

int openForAppending(const std::filesystem::path& file) {
  const int descriptor =
      ::open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (descriptor < 0)
    throw CommandFailure(fmt::format("cannot write {}: {}", file.string(), std::strerror(errno)));
  return descriptor;
}

std::vector<char*> pointers(std::vector<std::string>& arguments) {
  std::vector<char*> result;
  result.reserve(arguments.size() + 1);
  for (auto& argument : arguments) result.push_back(argument.data());
  result.push_back(nullptr);
  return result;
}

int exitStatus(int status) { return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status); }

}  // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& arguments, const Streams& streams) {
  const Pipe input;
  Pipe output;
  if (streams.output) {
    ::close(output.ends[1]);
    output.ends[1] = openForAppending(*streams.output);
  }
  const int errors = openForAppending(streams.errors);
  std::vector<std::string> all{"kite"};
  all.insert(all.end(), arguments.begin(), arguments.end());
  const auto argv = pointers(all);
  _pid = ::fork();
  if (_pid == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    ::dup2(input.ends[0], STDIN_FILENO);
    ::dup2(output.ends[1], STDOUT_FILENO);
    ::dup2(errors, STDERR_FILENO);
    ::execv("/proc/self/exe", argv.data());
    ::_exit(127);
  }
  ::close(input.ends[0]);
  ::close(output.ends[1]);
  ::close(errors);
  _input = input.ends[1];
  _output = output.ends[0];
  if (_pid < 0) throw CommandFailure(fmt::format("cannot fork: {}", std::strerror(errno)));
}

ChildProcess::~ChildProcess() {
  if (_pid > 0 && !hasEnded()) {
    ::kill(_pid, SIGKILL);
    wait();
  }
  ::close(_input);
  ::close(_output);
}

void ChildProcess::writeLine(const std::string& line) { writeAll(_input, line + "\n"); }

std::string ChildProcess::readLine() {
  for (;;) {
    if (const auto end = _unread.find('\n'); end != _unread.npos) {
      auto line = _unread.substr(0, end);
      _unread.erase(0, end + 1);
      return line;
    }
    if (!fill()) throw CommandFailure("a process of the demo does not answer");
  }
}

bool ChildProcess::fill() {
  pollfd readable{.fd = _output, .events = POLLIN, .revents = 0};
  if (::poll(&readable, 1, longestSilence) <= 0) return false;
  std::array<char, 4096> buffer{};
  const auto count = ::read(_output, buffer.data(), buffer.size());
  if (count <= 0) return false;
  _unread.append(buffer.data(), static_cast<std::size_t>(count));
  return true;
}

int ChildProcess::wait() {
  int status = 0;
  if (!_status && ::waitpid(_pid, &status, 0) == _pid) _status = exitStatus(status);
  return _status.value_or(-1);
}

bool ChildProcess::hasEnded() {
  int status = 0;
  if (!_status && ::waitpid(_pid, &status, WNOHANG) == _pid) _status = exitStatus(status);
  return _status.has_value();
}

}  // namespace kite::tool
