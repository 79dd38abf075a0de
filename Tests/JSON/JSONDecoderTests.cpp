#include "JSON/JSONDecoder.h"

#include <gtest/gtest.h>

#include <limits>

namespace kite::test {
namespace {

using Object = JSONValue::Object;
using Array = JSONValue::Array;

std::string brackets(std::size_t depth, std::string_view inside = "") {
  return std::string(depth, '[').append(inside) + std::string(depth, ']');
}

TEST(JSONDecoder, readsEachCase) {
  EXPECT_EQ(decodeJSON(R"("text")"), JSONValue("text"));
  EXPECT_EQ(decodeJSON("7"), JSONValue(7));
  EXPECT_EQ(decodeJSON("7.5"), JSONValue(7.5));
  EXPECT_EQ(decodeJSON("true"), JSONValue(true));
  EXPECT_EQ(decodeJSON("false"), JSONValue(false));
  EXPECT_EQ(decodeJSON("null"), JSONValue(Null{}));
  EXPECT_EQ(decodeJSON(" { \"b\" : [ 1 , {} , [] ] , \"a\" : null } \n"),
            JSONValue(Object{{"a", Null{}}, {"b", Array{1, Object{}, Array{}}}}));
}

TEST(JSONDecoder, readsAnIntegerWhereItFitsSixtyFourBits) {
  EXPECT_EQ(decodeJSON("9223372036854775807"), JSONValue(std::numeric_limits<std::int64_t>::max()));
  EXPECT_EQ(decodeJSON("-9223372036854775808"),
            JSONValue(std::numeric_limits<std::int64_t>::min()));
  EXPECT_EQ(decodeJSON("-0"), JSONValue(0));
}

TEST(JSONDecoder, readsALargerIntegerAsAReal) {
  EXPECT_EQ(decodeJSON("9223372036854775808"), JSONValue(9223372036854775808.0));
  EXPECT_EQ(decodeJSON("18446744073709551615"), JSONValue(18446744073709551615.0));
  EXPECT_EQ(decodeJSON("18446744073709551616"), JSONValue(18446744073709551616.0));
  EXPECT_EQ(decodeJSON("-9223372036854775809"), JSONValue(-9223372036854775808.0));
  EXPECT_EQ(decodeJSON("123456789012345678901234567890"), JSONValue(1.2345678901234568e29));
}

TEST(JSONDecoder, readsWhatStandsBesideALargeIntegerAsUsual) {
  EXPECT_EQ(
      decodeJSON(R"({"99999999999999999999":"99999999999999999999 \" 99999999999999999999",
                           "n":[99999999999999999999,9223372036854775807,-1,1.5,
                                0.99999999999999999999,1e2,true,false,null]})"),
      JSONValue(Object{{"99999999999999999999", "99999999999999999999 \" 99999999999999999999"},
                       {"n", Array{1e20, std::numeric_limits<std::int64_t>::max(), -1, 1.5, 1.0,
                                   100.0, true, false, Null{}}}}));
}

TEST(JSONDecoder, refusesALargeIntegerInATextThatIsOtherwiseWrong) {
  for (const auto* text :
       {"99999999999999999999]", "[99999999999999999999", "099999999999999999999",
        "+99999999999999999999", "99999999999999999999 \"", "99999999999999999999x",
        "[99999999999999999999,1e400]", "99999999999999999999.", "--99999999999999999999"})
    EXPECT_EQ(decodeJSON(text), std::nullopt) << text;
}

TEST(JSONDecoder, readsANumberWithAFractionOrExponentAsAReal) {
  EXPECT_EQ(decodeJSON("1.0"), JSONValue(1.0));
  EXPECT_EQ(decodeJSON("1e2"), JSONValue(100.0));
  EXPECT_EQ(decodeJSON("-1E-2"), JSONValue(-0.01));
  EXPECT_EQ(decodeJSON("1e-400"), JSONValue(0.0));
}

TEST(JSONDecoder, refusesARealThatOverflows) {
  EXPECT_EQ(decodeJSON("1e400"), std::nullopt);
  EXPECT_EQ(decodeJSON("[-1e400]"), std::nullopt);
  EXPECT_EQ(decodeJSON(std::string(400, '9')), std::nullopt);
  EXPECT_NE(decodeJSON(std::string(300, '9')), std::nullopt);
}

TEST(JSONDecoder, refusesWhatIsNoJSONText) {
  for (const auto* text :
       {"",         " ",          "[",    "]",       "[1]x",      "[1] [2]", "{\"a\"}",
        "{\"a\":}", "{\"a\":1,}", "[1,]", "[,1]",    "{1:2}",     "nul",     "True",
        "NaN",      "Infinity",   "01",   "1.",      ".5",        "+1",      "-",
        "1e",       "'a'",        "\"a",  "\"\\x\"", "\"\\u12\"", "\"\n\"",  "\xEF\xBB\xBF[1]",
        "// c\n1"})
    EXPECT_EQ(decodeJSON(text), std::nullopt) << text;
}

TEST(JSONDecoder, refusesBytesThatAreNotUTF8) {
  EXPECT_EQ(decodeJSON("\"\xFF\""), std::nullopt);
  EXPECT_EQ(decodeJSON("\"\xED\xA0\x80\""), std::nullopt);
  EXPECT_EQ(decodeJSON("[1]\xFF"), std::nullopt);
}

TEST(JSONDecoder, refusesHalfASurrogatePair) {
  EXPECT_EQ(decodeJSON(R"("\ud800")"), std::nullopt);
  EXPECT_EQ(decodeJSON(R"("\ud834\udd1e")"), JSONValue("𝄞"));
}

TEST(JSONDecoder, readsEscapes) {
  EXPECT_EQ(decodeJSON(R"("\"\\\/\b\f\n\r\t\u00e9\u0000")"),
            JSONValue(std::string("\"\\/\b\f\n\r\té\0", 11)));
}

TEST(JSONDecoder, keepsTheLastOfMembersWithOneKey) {
  EXPECT_EQ(decodeJSON(R"({"a":1,"b":2,"a":{"c":3},"\u0061":4})"),
            JSONValue(Object{{"a", 4}, {"b", 2}}));
}

TEST(JSONDecoder, readsValuesToTheDepthLimitOnly) {
  EXPECT_NE(decodeJSON(brackets(1024, "1")), std::nullopt);
  EXPECT_EQ(decodeJSON(brackets(1025, "1")), std::nullopt);
  EXPECT_EQ(decodeJSON(brackets(1026)), std::nullopt);
  EXPECT_EQ(decodeJSON(brackets(100'000)), std::nullopt);
  EXPECT_EQ(decodeJSON(std::string(100'000, '[')), std::nullopt);
}

TEST(JSONDecoder, readsOnlyTheBytesThatItIsGiven) {
  const std::string text = "[1,2]";
  EXPECT_EQ(decodeJSON(std::string_view(text).substr(1, 1)), JSONValue(1));
}

}  // namespace
}  // namespace kite::test
