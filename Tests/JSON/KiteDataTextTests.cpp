#include <Kite/KiteData.h>

#include "JSON/JSONWriter.h"
#include "JSON/RandomJSON.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

namespace kite::test {
namespace {

/// The text, and why there is none: as the object has them, for which it stands.
void expectTextOfTheObject(const KiteData& data, int enclosingContainers = 0) {
  std::string text = "before ";
  std::string objectText = "before ";
  JSONWriter writer(text);
  JSONWriter objectWriter(objectText);
  for (int i = 0; i < enclosingContainers; ++i) {
    writer.beginArray();
    objectWriter.beginArray();
  }
  writer.value(data);
  objectWriter.value(toJSONObject(data));
  EXPECT_EQ(writer.finish(), objectWriter.finish());
  EXPECT_EQ(text, objectText);
}

TEST(KiteDataText, sortsMembersByTheirNames) {
  std::string text;
  EXPECT_FALSE(appendJSON(
      text,
      KiteData{
          {"real", 2.0}, {"yes", true}, {"integer", -1}, {"text", "t"}, {"no", false}, {"", 0}}));
  EXPECT_EQ(text, R"({"":0,"integer":-1,"no":false,"real":2.0,"text":"t","yes":true})");
}

TEST(KiteDataText, ofNothingIsAnEmptyObject) { expectTextOfTheObject({}); }

TEST(KiteDataText, tellsNamesApartThatBeginAlike) {
  expectTextOfTheObject({{"identifier_b", 1},
                         {"identifier_a", 2},
                         {"identifier", 3},
                         {"identifie", 4},
                         {std::string_view("identifie\0", 10), 5},
                         {"\xC3\xA9t\xC3\xA9", 6},
                         {"z", 7}});
}

TEST(KiteDataText, keepsTheLastOfOneName) {
  expectTextOfTheObject({{"b", 1}, {"a", 2}, {"b", "last"}, {"c", 3}});
}

TEST(KiteDataText, escapesAndRepairs) {
  expectTextOfTheObject({{"quote\"", "\\"}, {"line", "a\nb"}});
  expectTextOfTheObject({{"broken \xFF", "\xC3"}, {"broken \xFE", "one name with the other"}});
}

TEST(KiteDataText, holdsWhatIsNested) {
  expectTextOfTheObject({{"map", KiteData{{"inner", std::vector{1.5, 2.0}}}},
                         {"after", 1},
                         {"none", nullptr},
                         {"date", Date{12.5}}});
}

TEST(KiteDataText, hasThePathToWhatDoesNotEncode) {
  const double infinity = std::numeric_limits<double>::infinity();
  expectTextOfTheObject({{"a", "before"}, {"b", infinity}, {"c", "after"}});
  expectTextOfTheObject({{"map", KiteData{{"inner", infinity}}}});
}

TEST(KiteDataText, countsTheContainersAroundIt) {
  const KiteData nested{{"list", std::vector{1}}};
  expectTextOfTheObject(nested, maximumEncodedDepth - 2);
  expectTextOfTheObject(nested, maximumEncodedDepth - 1);
  expectTextOfTheObject({{"a", 1}}, maximumEncodedDepth);
}

TEST(KiteDataText, hasNoLimit) {
  KiteData data;
  for (int i = 200; i > 0; --i) data.set("name " + std::to_string(i), i);
  data.set("long", std::string(100'000, 'x'));
  expectTextOfTheObject(data);
}

TEST(KiteDataText, isThatOfTheObjectWhateverThereIs) {
  RandomJSON random(17);
  for (int round = 0; round < 2000; ++round) {
    KiteData data;
    for (auto count = random.below(80); count > 0; --count) {
      const auto name = random.below(20) == 0 ? random.bytes(random.below(12)) : random.text();
      data.set(name, random.value(2));
    }
    expectTextOfTheObject(data);
  }
}

}  // namespace
}  // namespace kite::test
