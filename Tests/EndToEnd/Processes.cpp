#include "EndToEnd/Processes.h"

#include "EndToEnd/Folder.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <stdexcept>
#include <thread>

namespace kite::test {
namespace {

constexpr int patience = 30'000;  // milliseconds
constexpr uid_t nobody = 65534;

struct Ends {
  int toRead;
  int toWrite;
};

Ends makePipe() {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  return {ends[0], ends[1]};
}

int openFile(const std::filesystem::path& file) {
  const int descriptor = ::open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
  if (descriptor < 0) throw std::runtime_error("cannot write " + file.string());
  return descriptor;
}

void dropRights() {
  if (::geteuid() == 0 && (::setgid(nobody) != 0 || ::setuid(nobody) != 0)) ::_exit(126);
}

/// The child's half of a fork.
[[noreturn]] void become(char* const* arguments, int input, int output, int errors, bool asNobody) {
  ::dup2(input, STDIN_FILENO);
  ::dup2(output, STDOUT_FILENO);
  ::dup2(errors, STDERR_FILENO);
  const int program = ::open(*arguments, O_PATH | O_CLOEXEC);  // nobody may not reach it by name
  if (asNobody) dropRights();
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  asNobody ? ::fexecve(program, arguments, environ) : ::execv(*arguments, arguments);
  ::_exit(127);
}

int exitStatus(int status) { return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status); }

}  // namespace

Process::Process(const Arguments& arguments, const Surroundings& surroundings) {
  std::signal(SIGPIPE, SIG_IGN);
  Arguments all{surroundings.program.value_or(KITE_TOOL_PATH)};
  all.insert(all.end(), arguments.begin(), arguments.end());
  std::vector<char*> pointers;
  for (auto& argument : all) pointers.push_back(argument.data());
  pointers.push_back(nullptr);

  const auto input = makePipe();
  auto output = makePipe();
  if (surroundings.output) {
    ::close(output.toWrite);
    output.toWrite = openFile(*surroundings.output);
  }
  const int errors = openFile(surroundings.errors);
  _pid = ::fork();
  if (_pid == 0)
    become(pointers.data(), input.toRead, output.toWrite, errors, surroundings.asNobody);
  ::close(input.toRead);
  ::close(output.toWrite);
  ::close(errors);
  _input = input.toWrite;
  _output = output.toRead;
}

Process::~Process() {
  if (!_status) {
    signal(SIGKILL);
    wait();
  }
  endInput();
  ::close(_output);
}

void Process::send(const std::string& line) {
  const auto text = line + "\n";
  std::size_t sent = 0;
  while (sent < text.size()) {
    const auto count = ::write(_input, text.data() + sent, text.size() - sent);
    if (count <= 0) throw std::runtime_error("the process does not read");
    sent += static_cast<std::size_t>(count);
  }
}

void Process::endInput() {
  if (_input >= 0) ::close(_input);
  _input = -1;
}

bool Process::fill() {
  pollfd readable{.fd = _output, .events = POLLIN, .revents = 0};
  if (::poll(&readable, 1, patience) <= 0) throw std::runtime_error("the process is silent");
  std::array<char, 65536> buffer{};
  const auto count = ::read(_output, buffer.data(), buffer.size());
  if (count > 0) _unread.append(buffer.data(), static_cast<std::size_t>(count));
  return count > 0;
}

std::optional<std::string> Process::receiveMore() {
  for (;;) {
    if (const auto end = _unread.find('\n'); end != _unread.npos) {
      auto line = _unread.substr(0, end);
      _unread.erase(0, end + 1);
      return line;
    }
    if (!fill()) return std::nullopt;
  }
}

std::string Process::receive() {
  if (auto line = receiveMore()) return *std::move(line);
  throw std::runtime_error("the process has ended");
}

std::string Process::receiveAll() {
  while (fill()) {
  }
  return std::move(_unread);
}

void Process::signal(int number) const { ::kill(_pid, number); }

int Process::wait() {
  int status = 0;
  if (!_status && ::waitpid(_pid, &status, 0) == _pid) _status = exitStatus(status);
  return _status.value_or(-1);
}

Finished run(const Arguments& arguments, const std::string& input,
             const std::optional<std::filesystem::path>& program) {
  const Folder folder;
  Process process(arguments, {.errors = folder / "errors", .program = program});
  if (!input.empty()) process.send(input);
  process.endInput();
  auto output = process.receiveAll();
  const int status = process.wait();
  return {status, std::move(output), contents(folder / "errors")};
}

bool eventually(const std::function<bool()>& isDone, double seconds) {
  const auto deadline = now() + seconds;
  while (!isDone()) {
    if (now() > deadline) return false;
    pause(0.05);
  }
  return true;
}

double now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

void pause(double seconds) { std::this_thread::sleep_for(std::chrono::duration<double>(seconds)); }

}  // namespace kite::test
