#include "Linux/Threads/LibraryThread.h"

#include <pthread.h>

#include <csignal>
#include <system_error>
#include <thread>
#include <utility>

namespace kite::Linux {
namespace {

constexpr std::size_t longestThreadName = 15;

// A thread inherits the mask of its creator, so that no signal is delivered before it has one.
class SignalMask {
 public:
  SignalMask() {
    sigset_t blocked;
    sigfillset(&blocked);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS})
      sigdelset(&blocked, fault);
    pthread_sigmask(SIG_SETMASK, &blocked, &_previous);
  }
  SignalMask(const SignalMask&) = delete;
  SignalMask& operator=(const SignalMask&) = delete;
  ~SignalMask() { pthread_sigmask(SIG_SETMASK, &_previous, nullptr); }

 private:
  sigset_t _previous;
};

}  // namespace

bool startThread(const std::string& name, std::function<void()> body) {
  const SignalMask masked;
  try {
    std::thread thread([shortName = name.substr(0, longestThreadName), body = std::move(body)] {
      pthread_setname_np(pthread_self(), shortName.c_str());
      body();
    });
    thread.detach();
    return true;
  } catch (const std::system_error&) {
    return false;
  }
}

}  // namespace kite::Linux
