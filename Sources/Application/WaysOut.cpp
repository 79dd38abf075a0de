#include "Application/WaysOut.h"

#include "Base/CatchingBadAlloc.h"
#include "Base/Guarded.h"
#include "Linux/Storage/Uninterrupted.h"
#include "Linux/Threads/LibraryThread.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <mutex>
#include <utility>
#include <vector>

namespace kite::Linux {
namespace {

/// Never destroyed: an exit may come at any time.
class WorkList {
 public:
  void add(std::weak_ptr<LastWork> work) {
    _work.with([&](auto& list) {
      std::erase_if(list, [](const auto& entry) { return entry.expired(); });
      list.push_back(std::move(work));
    });
  }
  void doAll() const {
    catchingBadAlloc([this] {
      for (const auto& entry : _work.copy())
        if (const auto work = entry.lock()) work->doLastWork();
    });
  }

 private:
  Guarded<std::vector<std::weak_ptr<LastWork>>> _work;
};

WorkList& exitWork() {
  static auto& list = *new WorkList;
  return list;
}

constexpr std::array guardedSignals{SIGTERM, SIGINT};

/// Lets a thread do what a signal handler must not. For one signal: what comes after it is as if
/// unguarded.
class SignalGuard {
 public:
  /// This process's: a fork leaves the thread behind.
  static SignalGuard& instance() {
    static constinit Guarded<SignalGuard*> current;
    return *current.with([](SignalGuard*& guard) {
      if (!guard || _home != ::getpid()) guard = new SignalGuard;
      return guard;
    });
  }
  WorkList work;

 private:
  SignalGuard() {
    if (::pipe2(_pipe, O_CLOEXEC | O_NONBLOCK) != 0) return;
    _home = ::getpid();
    ::fcntl(_pipe[0], F_SETFL, 0);
    if (!startThread("kite.signals", [this] { await(); })) return;
    for (std::size_t i = 0; i < guardedSignals.size(); ++i)
      _isOurs[i] = guard(guardedSignals[i], _before[i]);
  }

  // The action goes back to the default with the first signal, so that a second one ends the
  // process whatever the first is still doing.
  static bool guard(int signal, struct sigaction& before) {
    struct sigaction current {};
    if (::sigaction(signal, nullptr, &current) != 0 || current.sa_handler == SIG_IGN) return false;
    if (current.sa_handler != tell) before = current;  // else it is inherited
    struct sigaction action {};
    action.sa_handler = tell;
    action.sa_flags = static_cast<int>(SA_RESTART | SA_RESETHAND);
    return ::sigaction(signal, &action, nullptr) == 0;
  }

  // A forked child has no guard, and the pipe is its parent's: the signal is as if unguarded.
  static void tell(int signal) {
    const int error = errno;
    if (::getpid() != _home) {
      restore(signal);
      ::raise(signal);
      errno = error;
      return;
    }
    const auto number = static_cast<char>(signal);
    [[maybe_unused]] const auto written = ::write(_pipe[1], &number, 1);
    errno = error;
  }

  void await() {
    char number = 0;
    if (uninterrupted([&] { return ::read(_pipe[0], &number, 1); }) != 1) return;
    for (const int other : guardedSignals)
      if (other != number && isGuarded(other)) ::signal(other, SIG_DFL);
    work.doAll();
    for (const int guarded : guardedSignals) restore(guarded);
    ::kill(::getpid(), number);
  }

  static bool isGuarded(int signal) {
    struct sigaction current {};
    return ::sigaction(signal, nullptr, &current) == 0 && current.sa_handler == tell;
  }
  static void restore(int signal) {
    for (std::size_t i = 0; i < guardedSignals.size(); ++i)
      if (guardedSignals[i] == signal && _isOurs[i]) ::sigaction(signal, &_before[i], nullptr);
  }

  static inline int _pipe[2] = {-1, -1};
  static inline pid_t _home = 0;
  static inline std::array<struct sigaction, guardedSignals.size()> _before{};
  static inline std::array<bool, guardedSignals.size()> _isOurs{};  // the others are ignored
};

}  // namespace

void doAtExit(std::weak_ptr<LastWork> work) {
  exitWork().add(std::move(work));
  static std::once_flag once;
  std::call_once(once, [] {
    std::atexit([] { exitWork().doAll(); });
    std::at_quick_exit([] { exitWork().doAll(); });
  });
}

void doAtSignals(std::weak_ptr<LastWork> work) {
  SignalGuard::instance().work.add(std::move(work));
}

}  // namespace kite::Linux
