#include <Kite/KiteData.h>

#include "Support/CatchFatalErrors.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <map>
#include <string>
#include <vector>

namespace kite::test {
namespace {

using DataObject = JSONValue::Object;

constexpr std::int64_t smallest = std::numeric_limits<std::int64_t>::min();
constexpr std::uint64_t beyondIntegers = std::uint64_t{1} << 63;

TEST(KiteData, keepsEveryKindOfValueThroughItsPackedForm) {
  const KiteData data{{"text", "t"},
                      {"integer", smallest},
                      {"real", -0.5},
                      {"yes", true},
                      {"no", false},
                      {"none", nullptr},
                      {"list", std::vector{1, 2}},
                      {"map", KiteData{{"inner", "x"}}}};
  EXPECT_EQ(toJSONObject(data), (DataObject{{"text", "t"},
                                            {"integer", smallest},
                                            {"real", -0.5},
                                            {"yes", true},
                                            {"no", false},
                                            {"none", Null{}},
                                            {"list", JSONValue::Array{1, 2}},
                                            {"map", DataObject{{"inner", "x"}}}}));
}

TEST(KiteData, takesANullPointerForNull) {
  const char* const nothing = nullptr;
  char* const nowhere = nullptr;
  KiteData data{{"constant", nothing}, {"variable", nowhere}};
  data.set("later", nothing);
  EXPECT_EQ(toJSONObject(data),
            (DataObject{{"constant", Null{}}, {"variable", Null{}}, {"later", Null{}}}));
  const std::map<std::string, const char*> members{{"member", nothing}};
  EXPECT_EQ(toJSONObject(KiteData(members)), (DataObject{{"member", Null{}}}));
  EXPECT_EQ(KiteValue(std::vector{nothing}).toJSONValue(), JSONValue(JSONValue::Array{Null{}}));
}

TEST(KiteData, keepsNamesAndTextsOfAnyLength) {
  for (const std::size_t length : {0U, 1U, 127U, 128U, 16383U, 16384U, 1U << 20U}) {
    const std::string long1(length, 'n');
    const std::string long2(length, '\0');
    KiteData data{{long1, long2}, {"after", 1}};
    data.set("more", long1);
    EXPECT_EQ(toJSONObject(data), (DataObject{{long1, long2}, {"after", 1}, {"more", long1}}))
        << length;
  }
}

TEST(KiteData, letsTheLastOfSeveralValuesUnderOneNameCount) {
  KiteData data{{"a", 1}, {"b", 2}, {"a", "second"}};
  data.set("b", 3.5);
  EXPECT_EQ(toJSONObject(data), (DataObject{{"a", "second"}, {"b", 3.5}}));
  EXPECT_EQ(data.at("b")->as<double>(), 3.5);
  EXPECT_EQ(data.values().size(), 2U);
}

TEST(KiteData, givesItsValuesInTheOrderOfTheirNames) {
  const KiteData data{{"c", 1}, {"a", 2}, {"b", 3}};
  std::string names;
  for (const auto& [name, value] : data.values()) names += name;
  EXPECT_EQ(names, "abc");
}

TEST(KiteData, isEmptyUntilSomethingIsPutIn) {
  KiteData data;
  EXPECT_TRUE(data.empty());
  EXPECT_FALSE(data.at("a"));
  data.set("a", nullptr);
  EXPECT_FALSE(data.empty());
  EXPECT_TRUE(data.at("a"));
}

TEST(KiteData, isMadeOfAMapOfTheHostsOwn) {
  const std::map<std::string, int> counts{{"x", 1}, {"y", 2}};
  EXPECT_EQ(toJSONObject(counts), (DataObject{{"x", 1}, {"y", 2}}));
}

TEST(KiteData, repairsNamesAndTextsThatAreNotUTF8) {
  EXPECT_EQ(toJSONObject({{"n\xFF", "t\xFE"}}), (DataObject{{"n\uFFFD", "t\uFFFD"}}));
}

TEST(KiteData, stopsTheProcessOverANumberWithoutAJSONForm) {
  constexpr const char* outOfRangeMessage =
      "A number above the largest signed 64-bit integer has no JSON form";
  const KiteData fine{{"a", beyondIntegers - 1}};
  fine.requireJSON();
  const KiteData large{{"a", 1}, {"b", beyondIntegers}};
  EXPECT_FATAL(large.requireJSON(), outOfRangeMessage);
  const KiteData inside{{"list", std::vector{beyondIntegers}}};
  EXPECT_FATAL(inside.requireJSON(), outOfRangeMessage);
}

TEST(KiteData, isEqualToOtherDataThatBecomesTheSameJSON) {
  EXPECT_EQ((KiteData{{"a", 1}, {"b", 2}}), (KiteData{{"b", 2}, {"a", 1}}));
  EXPECT_NE((KiteData{{"a", 1}}), (KiteData{{"a", 1.0}}));
}

}  // namespace
}  // namespace kite::test
