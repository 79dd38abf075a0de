#include "JSON/DynamicConversion.h"

#include "Support/CatchFatalErrors.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace kite::test {
namespace {

using Object = JSONValue::Object;
using Array = JSONValue::Array;
using List = DynamicValue::Array;
using Dictionary = DynamicValue::Dictionary;

constexpr double twoTo63 = 9223372036854775808.0;
constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr std::uint64_t largest = std::numeric_limits<std::uint64_t>::max();
const DynamicValue null = DynamicValue::NullObject{};

std::optional<JSONValue> json(const DynamicValue& object) { return toJSONValue(&object); }

TEST(UntypedObject, isNothingWhenThereIsNone) { EXPECT_EQ(toJSONValue(nullptr), std::nullopt); }

TEST(UntypedObject, isABooleanOnlyWhenItIsTheBooleanItself) {
  EXPECT_EQ(json(true), JSONValue(true));
  EXPECT_EQ(json(false), JSONValue(false));
  EXPECT_EQ(json(1), JSONValue(1));
  EXPECT_EQ(json(0), JSONValue(0));
}

TEST(UntypedObject, isAnIntegerWhenItsValueIsOne) {
  EXPECT_EQ(json(3), JSONValue(3));
  EXPECT_EQ(json(3.0), JSONValue(3));
  EXPECT_EQ(json(-0.0), JSONValue(0));
  EXPECT_EQ(json(-twoTo63), JSONValue(std::numeric_limits<std::int64_t>::min()));
}

TEST(UntypedObject, isARealWhenItsValueIsNoInteger) {
  EXPECT_EQ(json(3.5), JSONValue(3.5));
  EXPECT_EQ(json(twoTo63), JSONValue(twoTo63));
  EXPECT_EQ(json(std::nextafter(-twoTo63, -infinity)),
            JSONValue(std::nextafter(-twoTo63, -infinity)));
  EXPECT_EQ(json(infinity), JSONValue(infinity));
  EXPECT_EQ(json(std::uint64_t{1} << 63), JSONValue(twoTo63));
}

TEST(UntypedObject, isNothingWhenItsNumberIsNeither) {
  EXPECT_EQ(json(nan), std::nullopt);
  EXPECT_EQ(json(largest), std::nullopt);
  EXPECT_EQ(json((std::uint64_t{1} << 63) + 1), std::nullopt);
}

TEST(UntypedObject, isTextWhenItIsAString) { EXPECT_EQ(json("text"), JSONValue("text")); }

TEST(UntypedObject, isNothingWhenItIsOfAnyOtherKind) {
  EXPECT_EQ(json(null), std::nullopt);
  EXPECT_EQ(json(Date{1.5}), std::nullopt);
  EXPECT_EQ(json(Data{"bytes"}), std::nullopt);
  EXPECT_EQ(json(DynamicValue::Opaque{"Thing"}), std::nullopt);
}

TEST(UntypedObject, losesArrayElementsWithoutAResultAndKeepsTheOrderOfTheRest) {
  EXPECT_EQ(json(List{1, null, "text"}), JSONValue(Array{1, "text"}));
  EXPECT_EQ(json(List{Date{1}, List{null}, true}), JSONValue(Array{Array{}, true}));
}

TEST(UntypedObject, losesEntriesWithoutAResultOrAStringKey) {
  EXPECT_EQ(json(Dictionary{{"a", 1}, {2, "b"}, {"c", null}, {"d", List{3.0}}, {null, 1}}),
            JSONValue(Object{{"a", 1}, {"d", Array{3}}}));
  EXPECT_EQ(json(Dictionary{{2, "b"}}), JSONValue(Object{}));
}

TEST(UntypedObject, keepsTheLastEntryOfAKey) {
  EXPECT_EQ(json(Dictionary{{"a", 1}, {"a", 2}}), JSONValue(Object{{"a", 2}}));
}

TEST(MigratedObject, isABooleanOnlyWhenItIsTheBooleanItself) {
  EXPECT_EQ(migratedJSONValue(true), JSONValue(true));
  EXPECT_EQ(migratedJSONValue(false), JSONValue(false));
  EXPECT_EQ(migratedJSONValue(1), JSONValue(1));
}

TEST(MigratedObject, isAnIntegerWhenItsValueIsOneAndElseAReal) {
  EXPECT_EQ(migratedJSONValue(3.0), JSONValue(3));
  EXPECT_EQ(migratedJSONValue(3.5), JSONValue(3.5));
  EXPECT_EQ(migratedJSONValue(twoTo63), JSONValue(twoTo63));
  EXPECT_EQ(migratedJSONValue(largest), JSONValue(18446744073709551616.0));
  EXPECT_TRUE(std::isnan(*migratedJSONValue(nan).real()));
}

TEST(MigratedObject, isNullWhenItIsTheNullObject) {
  EXPECT_EQ(migratedJSONValue(null), JSONValue(Null{}));
}

TEST(MigratedObject, keepsNullsInArrays) {
  EXPECT_EQ(migratedJSONValue(List{1, null, "text"}), JSONValue(Array{1, Null{}, "text"}));
}

TEST(MigratedObject, losesEntriesWithoutAStringKeyWhateverTheyHold) {
  EXPECT_EQ(migratedJSONValue(Dictionary{{"a", null}, {2, Date{1}}, {"b", Dictionary{{"c", 3.0}}}}),
            JSONValue(Object{{"a", Null{}}, {"b", Object{{"c", 3}}}}));
}

TEST(MigratedObject, stopsTheProcessWhenItHasNoJSONForm) {
  const DynamicValue unconvertible[] = {Date{1}, Data{"bytes"}, DynamicValue::Opaque{"Thing"},
                                        List{1, Date{1}}, Dictionary{{"a", List{Data{}}}}};
  for (const auto& object : unconvertible)
    EXPECT_FATAL(migratedJSONValue(object), "User Info Migration failed");
}

TEST(MigratedObject, saysWhereItStoppedTheProcess) {
  const auto raised = fatalErrorOf([] { migratedJSONValue(Date{1}); });
  ASSERT_TRUE(raised);
  EXPECT_STREQ(raised->where.file, "UserInfo");
  EXPECT_STREQ(raised->where.function, "");
  EXPECT_EQ(raised->where.line, 229U);
}

TEST(DynamicConversions, repairTextAndKeys) {
  EXPECT_EQ(json(Dictionary{{"\xFF", "\xFE"}}), JSONValue(Object{{"\uFFFD", "\uFFFD"}}));
  EXPECT_EQ(migratedJSONValue(Dictionary{{"\xFF", "\xFE"}}),
            JSONValue(Object{{"\uFFFD", "\uFFFD"}}));
}

}  // namespace
}  // namespace kite::test
