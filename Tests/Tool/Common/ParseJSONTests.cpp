#include "Common/ParseJSON.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

namespace kite::tool {
namespace {

using testing::HasSubstr;

JSONValue parsed(std::string_view text) {
  const auto json = parseJSON(text);
  EXPECT_TRUE(json) << text << ": " << (json ? "" : json.error());
  return json ? *json : JSONValue();
}

std::string refusal(std::string_view text) {
  const auto json = parseJSON(text);
  EXPECT_FALSE(json) << text;
  return json ? "" : json.error();
}

std::string nested(std::size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); }

TEST(ParseJSON, readsEveryKind) {
  EXPECT_EQ(parsed(R"({"a":[true,false,null,"x",1,2.5]})"),
            JSONValue(JSONValue::Object{
                {"a", JSONValue::Array{true, false, nullptr, "x", std::int64_t{1}, 2.5}}}));
}

TEST(ParseJSON, takesANumberWithoutFractionAsAnInteger) {
  EXPECT_EQ(parsed("7"), JSONValue(std::int64_t{7}));
  EXPECT_EQ(parsed("-9223372036854775808"), JSONValue(std::numeric_limits<std::int64_t>::min()));
  EXPECT_EQ(parsed("9223372036854775807"), JSONValue(std::numeric_limits<std::int64_t>::max()));
}

TEST(ParseJSON, takesANumberWithFractionOrExponentAsAReal) {
  EXPECT_EQ(parsed("7.0"), JSONValue(7.0));
  EXPECT_EQ(parsed("7e0"), JSONValue(7.0));
  EXPECT_EQ(parsed("-1E-2"), JSONValue(-0.01));
}

TEST(ParseJSON, refusesAnIntegerAbove64Bits) {
  EXPECT_THAT(refusal("9223372036854775808"), HasSubstr("64 bits"));
  EXPECT_THAT(refusal("-9223372036854775809"), HasSubstr("64 bits"));
  EXPECT_THAT(refusal("100000000000000000000000"), HasSubstr("64 bits"));
}

TEST(ParseJSON, refusesARealThatIsNotFinite) { EXPECT_NE(refusal("1e999"), ""); }

TEST(ParseJSON, nestsUpToTheMaximumDepth) {
  EXPECT_TRUE(parsed(nested(maximumDepth)).array());
  EXPECT_THAT(refusal(nested(maximumDepth + 1)), HasSubstr("nested deeper than 500"));
  EXPECT_THAT(refusal(nested(1 << 19)), HasSubstr("nested deeper than 500"));
}

TEST(ParseJSON, refusesAMemberGivenTwice) {
  EXPECT_THAT(refusal(R"({"a":1,"b":{"c":1,"c":2}})"), HasSubstr("twice"));
}

TEST(ParseJSON, refusesWhatIsNotOneWholeText) {
  for (const auto* text : {"", " ", "{", "{}{}", "{} x", "nul", R"({"a":})", R"("\ud800")", "\xff"})
    EXPECT_NE(refusal(text), "") << text;
}

TEST(ParseJSON, keepsTextBeyondASCII) {
  EXPECT_EQ(parsed("\"na\xc3\xafve \\u00e9 \\ud83d\\ude00\""),
            JSONValue("na\xc3\xafve \xc3\xa9 \xf0\x9f\x98\x80"));
}

}  // namespace
}  // namespace kite::tool
