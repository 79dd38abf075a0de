#include "JSON/JSONWriter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

namespace kite::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Object = JSONValue::Object;
using Array = JSONValue::Array;

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

std::string encoded(const JSONValue& value) {
  std::string out;
  const auto error = appendJSON(out, value);
  return error ? "error: " + error->debugDescription : out;
}

std::string asString(std::string_view text) {
  std::string out;
  JSONWriter(out).string(text);
  return out;
}

JSONValue nested(int depth) {
  JSONValue value(Array{});
  for (int i = 1; i < depth; ++i) value = Array{value};
  return value;
}

TEST(JSONWriter, writesEachCaseInItsNaturalForm) {
  EXPECT_EQ(encoded("text"), R"("text")");
  EXPECT_EQ(encoded(7), "7");
  EXPECT_EQ(encoded(7.5), "7.5");
  EXPECT_EQ(encoded(true), "true");
  EXPECT_EQ(encoded(false), "false");
  EXPECT_EQ(encoded(Null{}), "null");
  EXPECT_EQ(encoded(Object{}), "{}");
  EXPECT_EQ(encoded(Array{}), "[]");
  EXPECT_EQ(encoded(Array{1, "a", Array{Null{}}}), R"([1,"a",[null]])");
  EXPECT_EQ(encoded(Object{{"b", 1}, {"a", Object{{"c", true}}}}), R"({"a":{"c":true},"b":1})");
}

TEST(JSONWriter, writesIntegersWhole) {
  EXPECT_EQ(encoded(std::numeric_limits<std::int64_t>::min()), "-9223372036854775808");
  EXPECT_EQ(encoded(std::numeric_limits<std::int64_t>::max()), "9223372036854775807");
}

TEST(JSONWriter, writesRealsSoThatTheyStayReals) {
  EXPECT_EQ(encoded(5.0), "5.0");
  EXPECT_EQ(encoded(-0.0), "-0.0");
  EXPECT_EQ(encoded(1e22), "1e+22");
  EXPECT_EQ(encoded(1e-7), "1e-07");
  EXPECT_EQ(encoded(123456789012.0), "123456789012.0");
}

TEST(JSONWriter, writesTheShortestDigitsThatReadBackTheSame) {
  EXPECT_EQ(encoded(0.1), "0.1");
  EXPECT_EQ(encoded(0.1 + 0.2), "0.30000000000000004");
  EXPECT_EQ(encoded(1765432100.123456), "1765432100.123456");
  EXPECT_EQ(encoded(5e-324), "5e-324");
  EXPECT_EQ(encoded(std::numeric_limits<double>::max()), "1.7976931348623157e+308");
}

TEST(JSONWriter, writesADateAsSecondsSinceTheReferenceDate) {
  EXPECT_EQ(encoded(Date{978'307'201.5}), "1.5");
  EXPECT_EQ(encoded(Date{0}), "-978307200.0");
}

TEST(JSONWriter, escapesWhatAStringMayNotHold) {
  EXPECT_EQ(asString("\"\\\b\f\n\r\t"), R"("\"\\\b\f\n\r\t")");
  EXPECT_EQ(asString(std::string_view("\0\x01\x0B\x1F", 4)), R"("\u0000\u0001\u000b\u001f")");
}

TEST(JSONWriter, leavesEverythingElseInAStringAsItIs) {
  EXPECT_EQ(asString(""), R"("")");
  EXPECT_EQ(asString("a/b'<&\x7F"), "\"a/b'<&\x7F\"");
  EXPECT_EQ(asString("é€𝄞\u2028"), "\"é€𝄞\u2028\"");
}

TEST(JSONWriter, escapesAtAnyPlaceInTextOfAnyLength) {
  for (std::size_t length = 1; length < 30; ++length) {
    const std::string clean(length, 'x');
    ASSERT_EQ(asString(clean), '"' + clean + '"');
    for (std::size_t at = 0; at < length; ++at) {
      for (const auto& [byte, escape] :
           {std::pair('"', "\\\""), {'\\', "\\\\"}, {'\x1F', "\\u001f"}}) {
        std::string text = clean;
        text[at] = byte;
        ASSERT_EQ(asString(text), '"' + clean.substr(0, at) + escape + clean.substr(at + 1) + '"');
      }
    }
  }
}

TEST(JSONWriter, escapesExactlyTheBytesThatNeedIt) {
  for (int code = 0; code < 0x80; ++code) {
    const std::string text(1, static_cast<char>(code));
    const bool isEscaped = code < 0x20 || code == '"' || code == '\\';
    EXPECT_EQ(asString(text) != '"' + text + '"', isEscaped) << code;
  }
}

TEST(JSONWriter, repairsTextAndKeysThatAreNotUTF8) {
  EXPECT_EQ(asString("a\xFF"), "\"a\uFFFD\"");
  std::string out;
  EXPECT_FALSE(appendJSON(out, Object{{"\xFF", 1}}));
  EXPECT_EQ(out, "{\"\uFFFD\":1}");
}

TEST(JSONWriter, appendsToWhatIsThere) {
  std::string out = "[";
  EXPECT_FALSE(appendJSON(out, 1.5));
  EXPECT_FALSE(appendJSON(out, Object{{"a", 1}}));
  EXPECT_EQ(out, R"([1.5{"a":1})");
}

TEST(JSONWriter, refusesRealsThatAreNotFinite) {
  for (const double number : {infinity, -infinity, nan}) {
    std::string out;
    const auto error = appendJSON(out, number);
    ASSERT_TRUE(error);
    EXPECT_THAT(error->codingPath, IsEmpty());
    EXPECT_EQ(error->debugDescription, "A number that is not finite has no JSON text");
    EXPECT_EQ(out, "");
  }
  EXPECT_EQ(encoded(Date{nan}), "error: A number that is not finite has no JSON text");
}

TEST(JSONWriter, saysWhereAValueCouldNotBeEncoded) {
  const JSONValue value(Object{{"a", 1}, {"list", Array{0, Object{{"bad", nan}, {"z", 1}}}}});
  std::string out;
  const auto error = appendJSON(out, value);
  ASSERT_TRUE(error);
  EXPECT_THAT(error->codingPath, ElementsAre("list", "1", "bad"));
}

TEST(JSONWriter, keepsWhatItWroteBeforeAnError) {
  std::string out;
  EXPECT_TRUE(appendJSON(out, Object{{"a", 1}, {"b", infinity}, {"c", 2}}));
  EXPECT_EQ(out, R"({"a":1,"b":)");
}

TEST(JSONWriter, refusesToNestDeeperThanTheLimit) {
  EXPECT_EQ(maximumEncodedDepth, 512);
  std::string out;
  EXPECT_FALSE(appendJSON(out, nested(512)));
  EXPECT_EQ(out, std::string(512, '[') + std::string(512, ']'));
  const auto error = appendJSON(out, nested(513));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->debugDescription, "Objects and arrays nest too deeply");
  EXPECT_THAT(error->codingPath, ::testing::AllOf(::testing::SizeIs(512), ::testing::Each("0")));
}

/// Whether the value encodes within two arrays.
bool encodesWithinTwo(const JSONValue& value) {
  std::string out;
  JSONWriter writer(out);
  writer.beginArray();
  writer.beginArray();
  writer.value(value);
  return !writer.error();
}

TEST(JSONWriter, countsTheContainersAroundTheValue) {
  EXPECT_TRUE(encodesWithinTwo(nested(510)));
  EXPECT_FALSE(encodesWithinTwo(nested(511)));
  EXPECT_TRUE(encodesWithinTwo(Object{{"a", nested(509)}}));
  EXPECT_FALSE(encodesWithinTwo(Object{{"a", nested(510)}}));
}

TEST(JSONWriter, countsTheObjectThatItGoesOnWithin) {
  for (const int depth : {511, 512}) {
    std::string out;
    JSONWriter writer(out);
    writer.resumeObject();
    writer.key("a");
    writer.value(nested(depth));
    EXPECT_EQ(writer.error().has_value(), depth == 512);
  }
}

TEST(JSONWriter, writesAScalarAtAnyDepth) {
  std::string out;
  JSONWriter writer(out);
  for (int depth = 0; depth < maximumEncodedDepth; ++depth) writer.beginArray();
  writer.value(1);
  EXPECT_FALSE(writer.error());
}

TEST(JSONWriter, putsTheCommasOfWhatIsWrittenPieceByPiece) {
  std::string out;
  JSONWriter writer(out);
  writer.beginObject();
  writer.key("text");
  writer.string("t");
  writer.key("list");
  writer.beginArray();
  writer.number(1.0);
  writer.number(std::int64_t{2});
  writer.beginObject();
  writer.endObject();
  writer.boolean(true);
  writer.null();
  writer.raw(R"({"ready":1})");
  writer.endArray();
  writer.key("last");
  writer.value(Array{1, 2});
  writer.endObject();
  EXPECT_FALSE(writer.finish());
  EXPECT_EQ(out, R"({"text":"t","list":[1.0,2,{},true,null,{"ready":1}],"last":[1,2]})");
}

TEST(JSONWriter, goesOnWithinAnObjectThatHasMembersAlready) {
  std::string out = R"({"a":1)";
  JSONWriter writer(out);
  writer.resumeObject();
  writer.key("b");
  writer.number(std::int64_t{2});
  writer.endObject();
  EXPECT_FALSE(writer.finish());
  EXPECT_EQ(out, R"({"a":1,"b":2})");
}

TEST(JSONWriter, writesNothingAfterAnErrorAndKeepsTheFirst) {
  std::string out;
  JSONWriter writer(out);
  writer.beginObject();
  writer.key("a\xFF");
  writer.beginArray();
  writer.null();
  writer.number(nan);
  writer.string("s");
  writer.number(infinity);
  writer.raw("1");
  writer.value(Object{{"a", 1}});
  writer.endArray();
  writer.key("b");
  writer.boolean(true);
  writer.beginArray();
  writer.endObject();
  ASSERT_TRUE(writer.finish());
  EXPECT_EQ(out, "{\"a\uFFFD\":[null,");
  EXPECT_THAT(writer.error()->codingPath, ElementsAre("a\uFFFD", "1"));
}

TEST(JSONWriter, makesRoomForTextOfAnyLength) {
  for (const std::size_t length : {500U, 511U, 512U, 513U, 100'000U}) {
    const std::string text(length, 'x');
    const std::string escaped(length, '\x01');
    EXPECT_EQ(encoded(Array{text, 1, escaped, 2.5}).size(), 7 * length + 13);
  }
}

TEST(JSONWriter, finishesWhereItIsDestroyed) {
  std::string out;
  JSONWriter(out).value(Array{1, "a"});
  EXPECT_EQ(out, R"([1,"a"])");
}

TEST(JSONWriter, doesNotWalkOnAfterAnError) {
  JSONValue wide = nan;
  for (int level = 0; level < 200; ++level) wide = Array{wide, wide};
  std::string out;
  const auto error = appendJSON(out, wide);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->codingPath.size(), 200U);
}

TEST(JSONWriter, takesNoSharedContainerForADeepOne) {
  const JSONValue shared = nested(300);
  std::string out;
  EXPECT_FALSE(appendJSON(out, Array{shared, shared, shared}));
}

}  // namespace
}  // namespace kite::test
