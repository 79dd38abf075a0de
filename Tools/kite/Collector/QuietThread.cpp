#include "Collector/QuietThread.h"

#include <csignal>

namespace kite::tool {

std::thread quietThread(std::function<void()> body) {
  sigset_t all{};
  sigset_t before{};
  ::sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, &before);
  std::thread thread(std::move(body));
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return thread;
}

}  // namespace kite::tool
