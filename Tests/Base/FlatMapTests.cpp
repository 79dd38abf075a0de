#include <Kite/Base/FlatMap.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>

namespace kite::test {
namespace {

using ::testing::ElementsAre;
using ::testing::Pair;
using Map = FlatMap<std::string, int>;

TEST(FlatMap, isWalkedInKeyOrder) {
  EXPECT_THAT((Map{{"c", 3}, {"a", 1}, {"b", 2}}),
              ElementsAre(Pair("a", 1), Pair("b", 2), Pair("c", 3)));
}

TEST(FlatMap, keepsTheLastOfEntriesWithOneKey) {
  EXPECT_THAT((Map{{"b", 1}, {"a", 2}, {"b", 3}, {"a", 4}, {"b", 5}}),
              ElementsAre(Pair("a", 4), Pair("b", 5)));
  EXPECT_THAT((Map{{"a", 1}, {"a", 2}}), ElementsAre(Pair("a", 2)));
}

TEST(FlatMap, takesAscendingEntriesAsTheyAre) {
  Map::Entries entries{{"a", 1}, {"b", 2}};
  const auto* storage = entries.data();
  const Map map = Map::fromUnsorted(std::move(entries));
  EXPECT_EQ(&*map.begin(), storage);
}

TEST(FlatMap, findsByTextWithoutMakingAString) {
  const FlatMap<std::string, int> map{{"a", 1}};
  EXPECT_TRUE(map.contains(std::string_view("a")));
  EXPECT_TRUE(map.contains("a"));
  EXPECT_FALSE(map.contains("b"));
  EXPECT_FALSE(map.contains(""));
  ASSERT_NE(map.at("a"), nullptr);
  EXPECT_EQ(*map.at("a"), 1);
  EXPECT_EQ(map.at("b"), nullptr);
}

TEST(FlatMap, assignsUnderAKeyThatIsThere) {
  Map map{{"a", 1}, {"b", 2}};
  map.insertOrAssign("a", 3);
  map["b"] = 4;
  EXPECT_THAT(map, ElementsAre(Pair("a", 3), Pair("b", 4)));
}

TEST(FlatMap, erasesOnlyWhatIsThere) {
  Map map{{"a", 1}, {"b", 2}};
  EXPECT_FALSE(map.erase("c"));
  EXPECT_TRUE(map.erase("a"));
  EXPECT_THAT(map, ElementsAre(Pair("b", 2)));
}

TEST(FlatMap, mergesWithTheOtherMapWinning) {
  const Map mine{{"a", 1}, {"b", 2}, {"d", 4}};
  const Map winner{{"b", 20}, {"c", 30}};
  EXPECT_THAT(mine.merged(winner),
              ElementsAre(Pair("a", 1), Pair("b", 20), Pair("c", 30), Pair("d", 4)));
  EXPECT_EQ(mine.merged({}), mine);
  EXPECT_EQ(Map().merged(winner), winner);
}

TEST(FlatMap, isEqualByKeysAndValues) {
  EXPECT_EQ((Map{{"a", 1}, {"b", 2}}), (Map{{"b", 2}, {"a", 1}}));
  EXPECT_NE((Map{{"a", 1}}), (Map{{"a", 2}}));
  EXPECT_NE((Map{{"a", 1}}), (Map{{"b", 1}}));
  EXPECT_NE((Map{{"a", 1}}), (Map{{"a", 1}, {"b", 2}}));
}

TEST(FlatMap, behavesLikeAnOrderedMapUnderAnyOperations) {
  std::mt19937 random(20);
  Map map;
  std::map<std::string, int> model;
  for (int step = 0; step < 5000; ++step) {
    const std::string key(1, static_cast<char>('a' + random() % 26));
    switch (random() % 3) {
      case 0:
        map.insertOrAssign(key, step);
        model[key] = step;
        break;
      case 1:
        map[key] = step;
        model[key] = step;
        break;
      default:
        ASSERT_EQ(map.erase(key), model.erase(key) == 1);
    }
    ASSERT_TRUE(
        std::equal(map.begin(), map.end(), model.begin(), model.end(),
                   [](auto& a, auto& b) { return a.first == b.first && a.second == b.second; }))
        << "after step " << step;
  }
}

TEST(FlatMap, isMadeOfEntriesInAnyOrderLikeAnOrderedMap) {
  std::mt19937 random(21);
  for (int round = 0; round < 200; ++round) {
    Map::Entries entries;
    std::map<std::string, int> model;
    for (int i = 0; i < 40; ++i) {
      const auto key = std::to_string(random() % 30);
      entries.emplace_back(key, i);
      model[key] = i;
    }
    const Map map = Map::fromUnsorted(std::move(entries));
    ASSERT_EQ(map, Map::fromUnsorted(Map::Entries(model.begin(), model.end())));
    ASSERT_EQ(map.size(), model.size());
  }
}

}  // namespace
}  // namespace kite::test
