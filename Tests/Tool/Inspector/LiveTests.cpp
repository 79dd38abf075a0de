#include "Inspector/Live.h"

#include <gtest/gtest.h>

#include <chrono>

namespace kite::test {
namespace {

using namespace std::chrono_literals;
using tool::Live;

TEST(LiveTests, aBatchAfterAPauseWaitsForNothing) {
  EXPECT_EQ(Live::restOfPause(Live::pause), 0ms);
  EXPECT_EQ(Live::restOfPause(1h), 0ms);
}

TEST(LiveTests, aBatchSoonAfterAnotherWaitsForTheRestOfThePause) {
  EXPECT_EQ(Live::restOfPause(0ms), Live::pause);
  EXPECT_EQ(Live::restOfPause(Live::pause - 4ms), 4ms);
  EXPECT_EQ(Live::restOfPause(Live::pause - 1us), 1ms) << "never too early";
}

}  // namespace
}  // namespace kite::test
