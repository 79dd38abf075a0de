#include "Base/Started.h"

#include "Support/CatchFatalErrors.h"

#include <gtest/gtest.h>

namespace kite::test {
namespace {

class StartedTests : public testing::Test {
 protected:
  Started<int> number{"Call start before", {"Manager", "", 84}};
};

TEST_F(StartedTests, stopsTheProcessBeforeStart) {
  const auto raised = fatalErrorOf([&] { static_cast<void>(*number.get()); });
  ASSERT_TRUE(raised);
  EXPECT_EQ(raised->message, "Call start before");
  EXPECT_EQ(raised->where.line, 84U);
  EXPECT_FALSE(number.unwrapped());
}

TEST_F(StartedTests, givesTheRecordOfTheLastStart) {
  number.set(1);
  number.set(2);
  EXPECT_EQ(*number.get(), 2);
  EXPECT_EQ(*number.unwrapped(), 2);
}

}  // namespace
}  // namespace kite::test
