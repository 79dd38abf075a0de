#pragma once

#include <pthread.h>

#include <csignal>
#include <ctime>

namespace kite::Linux {

/// While it lives, a file of this thread's that grows beyond the process's limit (RLIMIT_FSIZE) is
/// an error of the write alone: the signal that comes with it would end a host that never asked for
/// the write.
class WithoutFileSizeSignal {
 public:
  WithoutFileSizeSignal() {
    sigemptyset(&_signal);
    sigaddset(&_signal, SIGXFSZ);
    pthread_sigmask(SIG_BLOCK, &_signal, &_previous);
    _wasPending = sigismember(&_previous, SIGXFSZ) == 1 && isPending();
  }
  WithoutFileSizeSignal(const WithoutFileSizeSignal&) = delete;
  WithoutFileSizeSignal& operator=(const WithoutFileSizeSignal&) = delete;
  ~WithoutFileSizeSignal() {
    const timespec atOnce{};
    if (!_wasPending) sigtimedwait(&_signal, nullptr, &atOnce);
    pthread_sigmask(SIG_SETMASK, &_previous, nullptr);
  }

 private:
  static bool isPending() {
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, SIGXFSZ) == 1;
  }

  sigset_t _signal, _previous;
  bool _wasPending;
};

}  // namespace kite::Linux
