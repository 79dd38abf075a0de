#include "Fixture/ReferenceEvent.h"

#include <gtest/gtest.h>

namespace kite::test {
namespace {

TEST(ReferenceEventTests, theTextHasTheKnownSize) {
  const auto texts = bench::eventTexts(2);
  EXPECT_EQ(texts.front().size(), bench::referenceSize);
  EXPECT_NE(texts.front(), texts.back());
}

}  // namespace
}  // namespace kite::test
