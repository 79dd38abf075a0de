#include "Linux/Storage/OrdinalRanges.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <cstdint>
#include <set>
#include <utility>
#include <vector>

namespace kite::test {
namespace {

TEST(OrdinalRangesTests, joinsRangesThatTouch) {
  Linux::OrdinalRanges ranges;
  ranges.add({0, 3});
  ranges.add({5, 8});
  ranges.add({3, 5});
  Linux::OrdinalRanges joined;
  joined.add({0, 8});
  EXPECT_EQ(ranges.payload(), joined.payload());
  EXPECT_EQ(ranges.end(), 8u);
}

TEST(OrdinalRangesTests, ignoresAnEmptyRange) {
  Linux::OrdinalRanges ranges;
  ranges.add({4, 4});
  ranges.add({5, 3});
  EXPECT_EQ(ranges.payload(), "");
  EXPECT_EQ(ranges.end(), 0u);
}

TEST(OrdinalRangesTests, holdsWhatASetOfNumbersHolds) {
  EXPECT_TRUE(rc::check([] {
    const auto given = *rc::gen::container<std::vector<std::pair<std::uint8_t, std::uint8_t>>>(
        rc::gen::pair(rc::gen::inRange<std::uint8_t>(0, 40), rc::gen::inRange<std::uint8_t>(0, 9)));
    Linux::OrdinalRanges ranges;
    std::set<std::uint64_t> numbers;
    for (const auto& [first, count] : given) {
      ranges.add({first, std::uint64_t{first} + count});
      for (std::uint64_t i = 0; i < count; ++i) numbers.insert(first + i);
    }
    Linux::OrdinalRanges copy;
    copy.addAll(ranges.payload());
    RC_ASSERT(copy.payload() == ranges.payload());
    RC_ASSERT(copy.end() == ranges.end());
    std::uint64_t counted = 0;
    for (std::uint64_t i = 0; i < 60; ++i) {
      RC_ASSERT(ranges.contains(i) == numbers.contains(i));
      counted += numbers.contains(i);
      RC_ASSERT(ranges.countIn({0, i + 1}) == counted);
    }
  }));
}

}  // namespace
}  // namespace kite::test
