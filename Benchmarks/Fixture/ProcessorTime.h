#pragma once

#include <ctime>

namespace kite::bench {

/// What a clock of processor time says: of this process, or of this thread.
inline double processorSeconds(clockid_t clock = CLOCK_PROCESS_CPUTIME_ID) {
  timespec time{};
  ::clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

}  // namespace kite::bench
