#include "Common/WriteJSON.h"

#include "Common/ParseJSON.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace kite::tool {
namespace {

TEST(WriteJSON, writesMembersInKeyOrderWithoutBlanks) {
  EXPECT_EQ(toJSON(JSONValue::Object{{"b", JSONValue::Array{true, nullptr}}, {"a", "x"}}),
            R"({"a":"x","b":[true,null]})");
}

TEST(WriteJSON, writesEmptyContainers) {
  EXPECT_EQ(toJSON(JSONValue::Object{}), "{}");
  EXPECT_EQ(toJSON(JSONValue::Array{}), "[]");
}

TEST(WriteJSON, writesARealSoThatItReadsBackAsOne) {
  EXPECT_EQ(toJSON(3.0), "3.0");
  EXPECT_EQ(toJSON(0.1), "0.1");
  EXPECT_EQ(toJSON(1e300), "1e+300");
  EXPECT_EQ(toJSON(-0.0), "-0.0");
}

TEST(WriteJSON, writesAnIntegerWithoutFraction) {
  EXPECT_EQ(toJSON(std::numeric_limits<std::int64_t>::min()), "-9223372036854775808");
}

TEST(WriteJSON, writesNullForARealThatIsNotFinite) {
  EXPECT_EQ(toJSON(std::nan("")), "null");
  EXPECT_EQ(toJSON(std::numeric_limits<double>::infinity()), "null");
}

TEST(WriteJSON, escapesWhatAStringMustNotHold) {
  EXPECT_EQ(toJSON(std::string("a\"b\\c\n\x01") + '\0' + "ï"), R"("a\"b\\c\n\u0001\u0000ï")");
}

TEST(WriteJSON, writesADateAsStoredRecordsDo) {
  EXPECT_EQ(toJSON(Date::sinceReferenceDate(1.5)), "1.5");
}

TEST(WriteJSON, writesWhatParsingGivesBack) {
  const JSONValue value(JSONValue::Object{{"text", "\t\xc3\xa9"},
                                          {"list", JSONValue::Array{std::int64_t{1}, 1.0, -0.25}}});
  const auto back = parseJSON(toJSON(value));
  ASSERT_TRUE(back);
  EXPECT_EQ(*back, value);
}

}  // namespace
}  // namespace kite::tool
