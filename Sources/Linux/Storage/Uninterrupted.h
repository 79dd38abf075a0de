#pragma once

#include <sys/types.h>

#include <cerrno>

namespace kite::Linux {

inline constexpr int mostInterruptions = 1000;

/// Repeats a system call that signals interrupt, but not for ever.
template <class Call>
ssize_t uninterrupted(Call call) {
  for (int interruptions = 1;; ++interruptions) {
    const ssize_t result = call();
    if (result >= 0 || errno != EINTR || interruptions == mostInterruptions) return result;
  }
}

}  // namespace kite::Linux
