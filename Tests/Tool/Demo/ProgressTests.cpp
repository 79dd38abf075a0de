#include "Demo/Progress.h"

#include <gtest/gtest.h>

namespace kite::tool {
namespace {

TEST(DemoProgress, hasATimeLeftBeforeAnythingHasArrived) {
  EXPECT_GT(secondsLeft(600, {}, 0), 1);
  EXPECT_GT(secondsLeft(600, {.tracked = 600, .delivered = 0}, 1000), 0);
}

TEST(DemoProgress, trustsThePaceOnceMostHasArrived) {
  EXPECT_NEAR(secondsLeft(100, {.tracked = 100, .delivered = 90}, 90), 10, 2);
  EXPECT_NEAR(secondsLeft(100, {.tracked = 100, .delivered = 90}, 900), 100, 20);
}

TEST(DemoProgress, hasNoTimeLeftWhenAllHasArrived) {
  EXPECT_EQ(secondsLeft(600, {.tracked = 625, .delivered = 625}, 5), 0);
}

}  // namespace
}  // namespace kite::tool
