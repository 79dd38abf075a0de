#include "Linux/Threads/SystemTime.h"

#include <gtest/gtest.h>

#include <ctime>

namespace kite::Linux {
namespace {

double wallClock() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

TEST(SystemTime, tellsTheWallClockWithItsFraction) {
  const double before = wallClock();
  const double seconds = systemTimeProvider().now().secondsSince1970;
  const double after = wallClock();
  EXPECT_GE(seconds, before - 1e-6);
  EXPECT_LE(seconds, after + 1e-6);
}

}  // namespace
}  // namespace kite::Linux
