#include "Linux/Threads/WakeUpTimer.h"

#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace kite::Linux {

// Of several threads that wait for an edge, one is woken.
WakeUpTimer::WakeUpTimer()
    : _timer(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)),
      _events(::epoll_create1(EPOLL_CLOEXEC)) {
  epoll_event event{.events = EPOLLIN | EPOLLET, .data = {}};
  if (!isThere() || ::epoll_ctl(_events, EPOLL_CTL_ADD, _timer, &event) == 0) return;
  ::close(_events);
  _events = -1;
}

WakeUpTimer::~WakeUpTimer() {
  for (const int descriptor : {_timer, _events})
    if (descriptor >= 0) ::close(descriptor);
}

void WakeUpTimer::set(Time time) const {
  using std::chrono::nanoseconds;
  constexpr long second = 1'000'000'000;
  long value = 0;  // never
  if (time != never) value = std::max<long>(1, nanoseconds(time - Time::clock::now()).count());
  const itimerspec timing{.it_interval = {},
                          .it_value = {.tv_sec = value / second, .tv_nsec = value % second}};
  // Not an absolute time: what shows a process another date shifts that of every clock.
  ::timerfd_settime(_timer, 0, &timing, nullptr);
}

bool WakeUpTimer::await() const {
  while (true) {
    epoll_event event;
    const int count = ::epoll_wait(_events, &event, 1, -1);
    if (count == 1) return true;
    if (count < 0 && errno != EINTR) return false;
  }
}

}  // namespace kite::Linux
