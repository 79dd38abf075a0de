#include "Linux/Threads/SystemTime.h"

#include <chrono>

namespace kite::Linux {

Tempra::TimeProvider systemTimeProvider() {
  return {.now = [] {
    const std::chrono::duration<double> sinceEpoch =
        std::chrono::system_clock::now().time_since_epoch();
    return Date{sinceEpoch.count()};
  }};
}

}  // namespace kite::Linux
