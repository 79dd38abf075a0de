#include <Kite/JSONValue.h>

#include <gtest/gtest.h>

#include <limits>
#include <type_traits>

namespace kite::test {
namespace {

using Kind = JSONValue::Kind;
using Object = JSONValue::Object;
using Array = JSONValue::Array;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();

TEST(JSONValue, numbersItsCasesInTheirFixedOrder) {
  const JSONValue inOrder[] = {"text", 1, 1.0, true, Object{}, Array{}, Date{1}, Null{}};
  for (std::size_t i = 0; i < std::size(inOrder); ++i)
    EXPECT_EQ(static_cast<std::size_t>(inOrder[i].kind()), i);
}

TEST(JSONValue, givesItsContentsUnderTheirOwnKindOnly) {
  const JSONValue number(7);
  ASSERT_NE(number.integer(), nullptr);
  EXPECT_EQ(*number.integer(), 7);
  EXPECT_EQ(number.real(), nullptr);
  EXPECT_EQ(number.string(), nullptr);
  EXPECT_EQ(number.boolean(), nullptr);
  EXPECT_EQ(number.object(), nullptr);
  EXPECT_EQ(number.array(), nullptr);
  EXPECT_EQ(number.date(), nullptr);
  EXPECT_FALSE(number.isNull());
  EXPECT_TRUE(JSONValue().isNull());
  EXPECT_TRUE(JSONValue(nullptr).isNull());
}

TEST(JSONValue, takesANullPointerForNull) {
  const char* const nothing = nullptr;
  EXPECT_TRUE(JSONValue(nothing).isNull());
  EXPECT_EQ(Object({{"a", nothing}}), Object({{"a", Null{}}}));
}

TEST(JSONValue, takesTextForTextAndABooleanForABoolean) {
  EXPECT_EQ(JSONValue("text").kind(), Kind::string);
  EXPECT_EQ(JSONValue(true).kind(), Kind::boolean);
  EXPECT_EQ(JSONValue(1).kind(), Kind::integer);
  EXPECT_EQ(JSONValue(1.5F).kind(), Kind::real);
}

TEST(JSONValue, isNotMadeOfASingleCharacterOrAPointer) {
  static_assert(!std::is_constructible_v<JSONValue, char>);
  static_assert(!std::is_constructible_v<JSONValue, char8_t>);
  static_assert(!std::is_constructible_v<JSONValue, wchar_t>);
  static_assert(!std::is_constructible_v<JSONValue, const void*>);
  static_assert(std::is_constructible_v<JSONValue, const char*>);
}

TEST(JSONValue, isNeverEqualAcrossCases) {
  EXPECT_FALSE(JSONValue(1) == JSONValue(1.0));
  EXPECT_FALSE(JSONValue(1) == JSONValue(true));
  EXPECT_FALSE(JSONValue(0) == JSONValue(Null{}));
  EXPECT_FALSE(JSONValue(1.5) == JSONValue(Date{1.5}));
  EXPECT_FALSE(JSONValue(Object{}) == JSONValue(Array{}));
  EXPECT_FALSE(JSONValue("1") == JSONValue(1));
}

TEST(JSONValue, isEqualToTheSameContents) {
  EXPECT_EQ(JSONValue("a"), JSONValue("a"));
  EXPECT_NE(JSONValue("a"), JSONValue("b"));
  EXPECT_EQ(JSONValue(1), JSONValue(1));
  EXPECT_NE(JSONValue(1), JSONValue(2));
  EXPECT_EQ(JSONValue(true), JSONValue(true));
  EXPECT_NE(JSONValue(true), JSONValue(false));
  EXPECT_EQ(JSONValue(Date{1}), JSONValue(Date{1}));
  EXPECT_NE(JSONValue(Date{1}), JSONValue(Date{2}));
  EXPECT_EQ(JSONValue(), JSONValue(Null{}));
}

TEST(JSONValue, comparesRealsAsReals) {
  EXPECT_EQ(JSONValue(0.0), JSONValue(-0.0));
  EXPECT_NE(JSONValue(0.1), JSONValue(0.2));
  EXPECT_FALSE(JSONValue(nan) == JSONValue(nan));
  EXPECT_FALSE(JSONValue(Array{nan}) == JSONValue(Array{nan}));
}

TEST(JSONValue, isEqualToItsCopyWhateverAContainerHolds) {
  const JSONValue array(Array{nan});
  const JSONValue copy = array;
  EXPECT_EQ(array, copy);
}

TEST(JSONValue, comparesObjectsByKeysAndValues) {
  const JSONValue value(Object{{"a", 1}, {"b", Array{1, "x"}}});
  EXPECT_EQ(value, JSONValue(Object{{"b", Array{1, "x"}}, {"a", 1}}));
  EXPECT_NE(value, JSONValue(Object{{"a", 1}}));
  EXPECT_NE(value, JSONValue(Object{{"a", 1}, {"c", Array{1, "x"}}}));
  EXPECT_NE(value, JSONValue(Object{{"a", 1}, {"b", Array{1, "y"}}}));
  EXPECT_NE(value, JSONValue(Object{{"a", 1.0}, {"b", Array{1, "x"}}}));
}

TEST(JSONValue, comparesArraysInOrder) {
  EXPECT_EQ(JSONValue(Array{1, 2}), JSONValue(Array{1, 2}));
  EXPECT_NE(JSONValue(Array{1, 2}), JSONValue(Array{2, 1}));
  EXPECT_NE(JSONValue(Array{1, 2}), JSONValue(Array{1}));
  EXPECT_NE(JSONValue(Array{Array{1}, Array{2}}), JSONValue(Array{Array{1}, Array{3}}));
}

TEST(JSONValue, sharesTheContentsOfCopies) {
  const JSONValue object(Object{{"a", 1}});
  const JSONValue copy = object;
  EXPECT_EQ(copy.object(), object.object());
}

TEST(JSONValue, isNullAfterItWasMovedFrom) {
  for (JSONValue value : {JSONValue("text"), JSONValue(Object{{"a", 1}}), JSONValue(3)}) {
    const JSONValue original = value;
    JSONValue moved = std::move(value);
    EXPECT_TRUE(value.isNull());
    EXPECT_EQ(moved, original);
    JSONValue assigned(Array{1});
    assigned = std::move(moved);
    EXPECT_TRUE(moved.isNull());
    EXPECT_EQ(assigned, original);
  }
}

TEST(JSONValue, canBeReplacedByAPartOfItself) {
  JSONValue value(Array{JSONValue(Array{"inner"})});
  value = (*value.array())[0];
  EXPECT_EQ(value, JSONValue(Array{"inner"}));
  value = (*value.array())[0];
  EXPECT_EQ(value, JSONValue("inner"));
}

TEST(JSONValue, repairsTextOnEntry) {
  EXPECT_EQ(*JSONValue("a\xFF").string(), "a\xEF\xBF\xBD");
  EXPECT_EQ(*JSONValue(std::string("\xFF")).string(), "\xEF\xBF\xBD");
  EXPECT_EQ(*JSONValue(std::string_view("\xFF")).string(), "\xEF\xBF\xBD");
}

TEST(JSONValue, repairsKeysOnEntry) {
  const JSONValue value(Object{{"\xFF", 1}, {"z", 2}, {"\xFE", 3}});
  EXPECT_EQ(value, JSONValue(Object{{"z", 2}, {"\xEF\xBF\xBD", 1}}));
}

}  // namespace
}  // namespace kite::test
