#include <Kite/DynamicValue.h>

#include <gtest/gtest.h>

namespace kite::test {
namespace {

using Kind = DynamicValue::Kind;
using Array = DynamicValue::Array;
using Dictionary = DynamicValue::Dictionary;

TEST(DynamicValue, keepsABoxedBooleanApartFromABoxedNumber) {
  EXPECT_EQ(DynamicValue(true).kind(), Kind::boolean);
  EXPECT_EQ(DynamicValue(1).kind(), Kind::integer);
  EXPECT_FALSE(DynamicValue(true) == DynamicValue(1));
  EXPECT_FALSE(DynamicValue(false) == DynamicValue(0));
}

TEST(DynamicValue, takesANullPointerForTheNullObject) {
  const char* const nothing = nullptr;
  EXPECT_EQ(DynamicValue(nothing).kind(), Kind::null);
}

TEST(DynamicValue, keepsAnUnsignedNumberAsAnIntegerWhereItFits) {
  EXPECT_EQ(DynamicValue(std::uint64_t{7}), DynamicValue(7));
  EXPECT_EQ(DynamicValue(std::uint64_t{INT64_MAX}).kind(), Kind::integer);
  EXPECT_EQ(DynamicValue(std::uint64_t{1} << 63).kind(), Kind::unsignedInteger);
}

TEST(DynamicValue, isEqualToTheSameContentsOfTheSameKind) {
  const DynamicValue samples[] = {true,
                                  1,
                                  std::uint64_t{1} << 63,
                                  1.5,
                                  DynamicValue::NullObject{},
                                  "text",
                                  Array{1, "x"},
                                  Dictionary{{"a", 1}},
                                  Date{1.5},
                                  Data{"text"},
                                  DynamicValue::Opaque{"text"}};
  for (std::size_t i = 0; i < std::size(samples); ++i) {
    EXPECT_EQ(static_cast<std::size_t>(samples[i].kind()), i);
    for (std::size_t j = 0; j < std::size(samples); ++j)
      EXPECT_EQ(samples[i] == samples[j], i == j);
  }
}

TEST(DynamicValue, isUnequalToOtherContents) {
  EXPECT_FALSE(DynamicValue(Array{1}) == DynamicValue(Array{2}));
  EXPECT_FALSE(DynamicValue(Array{1}) == DynamicValue(Array{1, 1}));
  EXPECT_FALSE(DynamicValue(Dictionary{{"a", 1}}) == DynamicValue(Dictionary{{"b", 1}}));
  EXPECT_FALSE(DynamicValue(Dictionary{{"a", 1}}) == DynamicValue(Dictionary{{"a", 2}}));
  EXPECT_FALSE(DynamicValue("a") == DynamicValue("b"));
}

TEST(DynamicValue, findsAnEntryByItsStringKey) {
  const Dictionary dictionary{{1, "number"}, {"a", 7}, {"b", 8}};
  ASSERT_NE(valueFor(dictionary, "b"), nullptr);
  EXPECT_EQ(*valueFor(dictionary, "b"), DynamicValue(8));
  EXPECT_EQ(valueFor(dictionary, "1"), nullptr);
  EXPECT_EQ(valueFor({}, "a"), nullptr);
}

TEST(DynamicValue, isANullObjectAfterItWasMovedFrom) {
  DynamicValue value(Array{1});
  const DynamicValue moved = std::move(value);
  EXPECT_EQ(value.kind(), Kind::null);
  EXPECT_EQ(moved, DynamicValue(Array{1}));
}

TEST(DynamicValue, canBeReplacedByAPartOfItself) {
  DynamicValue value(Array{DynamicValue(Array{"inner"})});
  value = (*value.array())[0];
  EXPECT_EQ(value, DynamicValue(Array{"inner"}));
}

}  // namespace
}  // namespace kite::test
