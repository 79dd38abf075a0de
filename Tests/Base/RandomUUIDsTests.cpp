#include "Base/RandomUUIDs.h"

#include <gtest/gtest.h>

#include <bitset>
#include <set>

namespace kite::test {
namespace {

constexpr RandomUUIDs::Seed seed{1, 2, 3, 4};

TEST(RandomUUIDs, carryTheirVersionAndVariant) {
  RandomUUIDs uuids(seed);
  for (int i = 0; i < 1000; ++i) {
    const auto text = uuids.next().text();
    ASSERT_EQ(text[14], '4') << text;
    ASSERT_NE(std::string_view("89AB").find(text[19]), std::string_view::npos) << text;
  }
}

TEST(RandomUUIDs, takeTheirOtherBitsFromThePublishedGenerator) {
  // The first two numbers of xoshiro256++ from the state 1, 2, 3, 4 are 41943041 and 58720359.
  const UUID uuid = RandomUUIDs(seed).next();
  constexpr UUID expected{{0x01, 0x00, 0x80, 0x02, 0, 0, 0x40, 0, 0x80 | 0x27, 0x00, 0x80, 0x03}};
  EXPECT_EQ(uuid.text(), expected.text());
}

TEST(RandomUUIDs, doNotRepeat) {
  RandomUUIDs uuids(seed);
  std::set<UUID> seen;
  for (int i = 0; i < 10'000; ++i) seen.insert(uuids.next());
  EXPECT_EQ(seen.size(), 10'000U);
}

TEST(RandomUUIDs, useEveryBitThatIsNotFixed) {
  RandomUUIDs uuids(seed);
  std::bitset<128> everSet;
  std::bitset<128> everClear;
  for (int i = 0; i < 200; ++i) {
    const UUID uuid = uuids.next();
    for (std::size_t bit = 0; bit < 128; ++bit)
      (uuid.bytes[bit / 8] >> (bit % 8) & 1 ? everSet : everClear).set(bit);
  }
  EXPECT_EQ((everSet & everClear).count(), 122U);
}

}  // namespace
}  // namespace kite::test
