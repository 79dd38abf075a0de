#include "Counts/Uninstrumented/TracedCalls.h"

#include <linux/futex.h>
#include <malloc.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <limits>
#include <stdexcept>

namespace kite::test {
namespace {

// A call that nothing else makes marks where watching begins and ends.
constexpr long marker = SYS_getppid;
void mark() { ::syscall(marker); }

/// Memory for the whole scenario, so that growing the heap is not mistaken for the library's doing.
void growHeap() {
  constexpr int plenty = 64 << 20;
  ::mallopt(M_MMAP_THRESHOLD, plenty);
  ::mallopt(M_TRIM_THRESHOLD, std::numeric_limits<int>::max());
  ::mallopt(M_TOP_PAD, plenty);
  void* volatile memory = ::malloc(plenty / 2);
  ::free(memory);
}

[[noreturn]] void runTraced(const std::function<void(const Watch&)>& scenario) {
  growHeap();
  ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);  // this thread alone
  ::raise(SIGSTOP);
  scenario([](const std::function<void()>& body) {
    mark();
    body();
    mark();
  });
  ::_exit(0);
}

/// Lets the child run to its next stop; false when it has ended.
bool awaitStop(pid_t child, int request, int signal) {
  int status = 0;
  if (request != 0 && ::ptrace(static_cast<__ptrace_request>(request), child, nullptr,
                               reinterpret_cast<void*>(static_cast<long>(signal))) != 0)
    throw std::runtime_error("the child cannot be traced");
  if (::waitpid(child, &status, __WALL) != child) throw std::runtime_error("the child is lost");
  if (WIFSTOPPED(status)) return true;
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
    throw std::runtime_error("the scenario failed");
  return false;
}

std::vector<SystemCall> follow(pid_t child) {
  std::vector<SystemCall> calls;
  bool isWatching = false;
  awaitStop(child, 0, 0);
  ::ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
  while (awaitStop(child, PTRACE_SYSCALL, 0)) {
    __ptrace_syscall_info info{};
    ::ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof info, &info);
    if (info.op != PTRACE_SYSCALL_INFO_ENTRY) continue;
    const auto number = static_cast<long>(info.entry.nr);
    if (number == marker) {
      isWatching = !isWatching;
    } else if (isWatching) {
      calls.push_back({number, static_cast<long>(info.entry.args[1])});
    }
  }
  return calls;
}

}  // namespace

bool SystemCall::wakesASleeper() const {
  return number == SYS_futex && (secondArgument & FUTEX_CMD_MASK) == FUTEX_WAKE;
}

std::vector<SystemCall> systemCalls(const std::function<void(const Watch&)>& scenario) {
  const pid_t child = ::fork();
  if (child < 0) throw std::runtime_error("no child process");
  if (child == 0) runTraced(scenario);
  return follow(child);
}

}  // namespace kite::test
