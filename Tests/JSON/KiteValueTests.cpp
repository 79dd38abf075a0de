#include <Kite/KiteValue.h>

#include "Support/CatchFatalErrors.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

namespace kite::test {

struct Price {
  int cents;
  JSONValue toJSONValue() const { return cents; }
};

struct Colour {
  const char* name;
};

}  // namespace kite::test

template <>
struct kite::ToJSONValue<kite::test::Colour> {
  static JSONValue convert(const kite::test::Colour& colour) { return colour.name; }
};

namespace kite::test {
namespace {

using Object = JSONValue::Object;
using Array = JSONValue::Array;

constexpr const char* outOfRange =
    "A number above the largest signed 64-bit integer has no JSON form";
constexpr std::uint64_t tooLarge = std::uint64_t{1} << 63;

JSONValue json(const KiteValue& value) { return value.toJSONValue(); }

TEST(KiteValue, readsAsDataInBraces) {
  const KiteData data{{"items", 3},
                      {"gift", true},
                      {"price", 12.5},
                      {"name", "x"},
                      {"s", std::string("y")},
                      {"view", std::string_view("v")},
                      {"u", 7U},
                      {"f", 1.5F},
                      {"date", Date{1.5}},
                      {"none", nullptr},
                      {"opt", std::optional<int>{}},
                      {"list", std::vector{1, 2}},
                      {"map", KiteData{{"a", 1}}},
                      {"own", Price{1299}},
                      {"special", Colour{"red"}},
                      {"json", JSONValue(Array{1})}};
  const Object expected{{"items", 3},
                        {"gift", true},
                        {"price", 12.5},
                        {"name", "x"},
                        {"s", "y"},
                        {"view", "v"},
                        {"u", 7},
                        {"f", 1.5},
                        {"date", 1.5},
                        {"none", Null{}},
                        {"opt", Null{}},
                        {"list", Array{1, 2}},
                        {"map", Object{{"a", 1}}},
                        {"own", 1299},
                        {"special", "red"},
                        {"json", Array{1}}};
  EXPECT_EQ(toJSONObject(data), expected);
}

TEST(KiteValue, keepsEveryIntegerType) {
  EXPECT_EQ(json(std::int8_t{-1}), JSONValue(-1));
  EXPECT_EQ(json(std::uint8_t{200}), JSONValue(200));
  EXPECT_EQ(json(std::int16_t{-2}), JSONValue(-2));
  EXPECT_EQ(json(-3LL), JSONValue(-3));
  EXPECT_EQ(json(3ULL), JSONValue(3));
  EXPECT_EQ(json(std::numeric_limits<std::int64_t>::min()),
            JSONValue(std::numeric_limits<std::int64_t>::min()));
  EXPECT_EQ(json(tooLarge - 1), JSONValue(std::numeric_limits<std::int64_t>::max()));
}

TEST(KiteValue, isNotMadeOfASingleCharacterOrAPointer) {
  static_assert(!std::is_constructible_v<KiteValue, char>);
  static_assert(!std::is_constructible_v<KiteValue, wchar_t>);
  static_assert(!std::is_constructible_v<KiteValue, char8_t>);
  static_assert(!std::is_constructible_v<KiteValue, char16_t>);
  static_assert(!std::is_constructible_v<KiteValue, char32_t>);
  static_assert(!std::is_constructible_v<KiteValue, const void*>);
  static_assert(!std::is_constructible_v<KiteValue, std::vector<char>>);
  struct Unknown {};
  static_assert(!std::is_constructible_v<KiteValue, Unknown>);
}

TEST(KiteValue, takesANativeBooleanForABoolean) {
  EXPECT_EQ(json(true), JSONValue(true));
  EXPECT_EQ(json(false), JSONValue(false));
}

TEST(KiteValue, takesABoxedBooleanForAReal) {
  EXPECT_EQ(json(DynamicValue(true)), JSONValue(1.0));
  EXPECT_EQ(json(DynamicValue(false)), JSONValue(0.0));
}

TEST(KiteValue, takesEveryBoxedNumberForAReal) {
  EXPECT_EQ(json(DynamicValue(3)), JSONValue(3.0));
  EXPECT_EQ(json(DynamicValue(tooLarge)), JSONValue(9223372036854775808.0));
  EXPECT_EQ(json(DynamicValue(3.5)), JSONValue(3.5));
}

TEST(KiteValue, takesTheOtherBoxedObjectsForWhatTheyAre) {
  EXPECT_EQ(json(DynamicValue("text")), JSONValue("text"));
  EXPECT_EQ(json(DynamicValue(Date{1.5})), JSONValue(1.5));
  EXPECT_EQ(json(DynamicValue(DynamicValue::NullObject{})), JSONValue());
  EXPECT_EQ(json(DynamicValue(Data{"bytes"})), JSONValue());
  EXPECT_EQ(json(DynamicValue(DynamicValue::Array{1})), JSONValue());
}

TEST(KiteValue, writesAnIdentifierInUpperCase) {
  EXPECT_EQ(json(*UUID::parse("0d8e2a44-3b19-4e63-a2f7-91c5d7b3e802")),
            JSONValue("0D8E2A44-3B19-4E63-A2F7-91C5D7B3E802"));
}

TEST(KiteValue, writesADateAsSecondsSince1970) {
  EXPECT_EQ(json(Date{1.5}), JSONValue(1.5));
  EXPECT_EQ(KiteValue(Date{1.5}).as<Date>(), Date{1.5});
}

TEST(KiteValue, writesAnAbsentOptionalAsNull) {
  EXPECT_EQ(json(std::optional<std::string>()), JSONValue());
  EXPECT_EQ(json(std::optional<std::string>("x")), JSONValue("x"));
  EXPECT_EQ(json(std::nullopt), JSONValue());
  EXPECT_EQ(json(KiteValue()), JSONValue());
}

TEST(KiteValue, convertsTheElementsOfAList) {
  EXPECT_EQ(json(std::vector<bool>{true, false}), JSONValue(Array{true, false}));
  EXPECT_EQ(json(std::vector<KiteValue>{1, "x", Date{2}}), JSONValue(Array{1, "x", 2.0}));
  EXPECT_EQ(json(std::vector<std::optional<int>>{1, std::nullopt}), JSONValue(Array{1, Null{}}));
  EXPECT_EQ(json(std::vector{std::vector{1}, std::vector{2}}),
            JSONValue(Array{Array{1}, Array{2}}));
  EXPECT_EQ(json(std::vector{Price{5}}), JSONValue(Array{5}));
}

TEST(KiteValue, convertsTheValuesOfAMap) {
  EXPECT_EQ(json(std::map<std::string, int>{{"a", 1}}), JSONValue(Object{{"a", 1}}));
  EXPECT_EQ(json(std::map<std::string, KiteValue>{{"a", Date{1}}}), JSONValue(Object{{"a", 1.0}}));
  EXPECT_EQ(json(KiteData{{"a", KiteData{{"b", Date{1}}}}}),
            JSONValue(Object{{"a", Object{{"b", 1.0}}}}));
}

TEST(KiteValue, leavesJSONAsItIs) {
  const JSONValue value(Object{{"date", Date{1}}, {"null", Null{}}});
  EXPECT_EQ(json(value), value);
}

TEST(KiteValue, stopsTheProcessForANumberThatIsTooLarge) {
  EXPECT_FATAL(static_cast<void>(json(tooLarge)), outOfRange);
  EXPECT_FATAL(static_cast<void>(json(std::numeric_limits<std::uint64_t>::max())), outOfRange);
  EXPECT_FATAL(toJSONObject({{"a", tooLarge}}), outOfRange);
}

TEST(KiteValue, carriesANumberThatIsTooLargeInsideContainersUntilTheyBecomeJSON) {
  const KiteValue list(std::vector<KiteValue>{1, tooLarge});
  const KiteValue map(KiteData{{"list", list}, {"fine", 1}});
  const KiteValue plain(std::vector<std::uint64_t>{1, tooLarge});
  const KiteValue optional(std::optional<std::uint64_t>{tooLarge});
  for (const KiteValue& value : {list, map, plain, optional})
    EXPECT_FATAL(static_cast<void>(json(value)), outOfRange);
  EXPECT_FALSE(list.as<std::vector<KiteValue>>());
  EXPECT_FALSE(map.as<KiteData>());
}

TEST(KiteValue, isReadBackAsItsOwnKindOnly) {
  EXPECT_EQ(KiteValue("x").as<std::string>(), "x");
  EXPECT_EQ(KiteValue(3).as<std::int64_t>(), 3);
  EXPECT_EQ(KiteValue(3.0).as<double>(), 3.0);
  EXPECT_EQ(KiteValue(true).as<bool>(), true);
  EXPECT_FALSE(KiteValue(3).as<double>());
  EXPECT_FALSE(KiteValue(3.0).as<std::int64_t>());
  EXPECT_FALSE(KiteValue(1).as<bool>());
  EXPECT_FALSE(KiteValue(1.5).as<Date>());
  EXPECT_FALSE(KiteValue(Date{1.5}).as<double>());
  EXPECT_FALSE(KiteValue("x").as<KiteData>());
  EXPECT_FALSE(KiteValue("x").as<std::vector<KiteValue>>());
}

TEST(KiteValue, isReadBackFromContainersOfTheHostsOwn) {
  const auto data = KiteValue(KiteData{{"a", 1}, {"none", nullptr}}).as<KiteData>();
  ASSERT_TRUE(data);
  EXPECT_EQ(data->values().size(), 2U);
  EXPECT_EQ(data->at("a")->as<std::int64_t>(), 1);
  const auto list = KiteValue(std::vector{1, 2}).as<std::vector<KiteValue>>();
  ASSERT_TRUE(list);
  EXPECT_EQ(list->at(1).as<std::int64_t>(), 2);
}

TEST(StoredJSON, comesBackToTheHostAsTheSameKind) {
  EXPECT_EQ(toKiteValue(JSONValue("x"))->as<std::string>(), "x");
  EXPECT_EQ(toKiteValue(JSONValue(3))->as<std::int64_t>(), 3);
  EXPECT_EQ(toKiteValue(JSONValue(3.0))->as<double>(), 3.0);
  EXPECT_EQ(toKiteValue(JSONValue(true))->as<bool>(), true);
  EXPECT_EQ(toKiteValue(JSONValue(Date{1.5}))->as<Date>(), Date{1.5});
}

TEST(StoredJSON, comesBackAsNothingWhenItIsNull) {
  EXPECT_FALSE(toKiteValue(JSONValue()));
  EXPECT_FALSE(toKiteValue(json(std::optional<int>())));
}

TEST(StoredJSON, losesItsNullsOnTheWayBack) {
  const Object members{{"a", 1}, {"none", Null{}}, {"list", Array{Null{}, 2, Array{Null{}}}}};
  const KiteData data = toKiteValue(members);
  EXPECT_EQ(data.values().size(), 2U);
  EXPECT_FALSE(data.at("none"));
  const auto list = data.at("list")->as<std::vector<KiteValue>>();
  ASSERT_TRUE(list);
  ASSERT_EQ(list->size(), 2U);
  EXPECT_EQ(list->at(0).as<std::int64_t>(), 2);
  EXPECT_TRUE(list->at(1).as<std::vector<KiteValue>>()->empty());
  EXPECT_EQ(toJSONObject(data), (Object{{"a", 1}, {"list", Array{2, Array{}}}}));
}

TEST(StoredJSON, keepsDatesForTheHostAtAnyDepth) {
  const auto value = toKiteValue(JSONValue(Object{{"list", Array{Object{{"date", Date{1.5}}}}}}));
  const auto list = value->as<KiteData>()->at("list")->as<std::vector<KiteValue>>();
  EXPECT_EQ(list->at(0).as<KiteData>()->at("date")->as<Date>(), Date{1.5});
}

TEST(StoredJSON, turnsItsDatesIntoSecondsWhenItBecomesJSONAgain) {
  const auto value = toKiteValue(JSONValue(Object{{"list", Array{Object{{"date", Date{1.5}}}}}}));
  EXPECT_EQ(value->toJSONValue(), JSONValue(Object{{"list", Array{Object{{"date", 1.5}}}}}));
}

TEST(HostData, keepsTheLastOfKeysThatBecomeEqualByRepair) {
  EXPECT_EQ(toJSONObject({{"\xFE", 1}, {"\xFF", 2}, {"a", 3}}), (Object{{"a", 3}, {"\uFFFD", 2}}));
}

}  // namespace
}  // namespace kite::test
