#include <Kite/Severity.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kite::test {
namespace {

TEST(Severity, ascendsFromDebugToCritical) {
  EXPECT_THAT(allSeverities,
              ::testing::ElementsAre(Severity::debug, Severity::notice, Severity::warning,
                                     Severity::error, Severity::critical));
  for (std::size_t i = 0; i < allSeverities.size(); ++i)
    EXPECT_EQ(static_cast<std::size_t>(allSeverities.at(i)), i);
}

TEST(Severity, hasATextForEachLevel) {
  EXPECT_EQ(text(Severity::debug), "Debug");
  EXPECT_EQ(text(Severity::notice), "Notice");
  EXPECT_EQ(text(Severity::warning), "Warning");
  EXPECT_EQ(text(Severity::error), "Error");
  EXPECT_EQ(text(Severity::critical), "Critical");
}

}  // namespace
}  // namespace kite::test
