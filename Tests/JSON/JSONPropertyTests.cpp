#include <Kite/KiteValue.h>

#include "JSON/JSONDecoder.h"
#include "JSON/JSONWriter.h"
#include "JSON/RandomJSON.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace kite::test {
namespace {

constexpr int rounds = 2000;

std::string encoded(const JSONValue& value) {
  std::string out;
  EXPECT_FALSE(appendJSON(out, value));
  return out;
}

JSONValue withoutNulls(const JSONValue& value) {
  if (const auto* members = value.object()) {
    JSONValue::Object kept;
    for (const auto& [key, member] : *members)
      if (!member.isNull()) kept.insertOrAssign(key, withoutNulls(member));
    return kept;
  }
  if (const auto* elements = value.array()) {
    JSONValue::Array kept;
    for (const auto& element : *elements)
      if (!element.isNull()) kept.push_back(withoutNulls(element));
    return kept;
  }
  return value;
}

TEST(JSONProperties, everyValueIsTheSameAfterEncodingAndDecoding) {
  RandomJSON random(11);
  for (int round = 0; round < rounds; ++round) {
    const JSONValue value = random.value();
    const auto text = encoded(value);
    ASSERT_EQ(decodeJSON(text), value) << "round " << round << ": " << text;
  }
}

TEST(JSONProperties, everyRealIsTheSameAfterEncodingAndDecoding) {
  RandomJSON random(12);
  for (int round = 0; round < 20 * rounds; ++round) {
    const double number = random.finiteReal();
    const auto decoded = decodeJSON(encoded(number));
    ASSERT_TRUE(decoded && decoded->real()) << number;
    ASSERT_EQ(*decoded->real(), number);
  }
}

TEST(JSONProperties, equalValuesHaveOneText) {
  RandomJSON random(13);
  for (int round = 0; round < rounds; ++round) {
    const JSONValue::Object members = random.object();
    JSONValue::Object::Entries shuffled(members.begin(), members.end());
    std::rotate(shuffled.begin(),
                shuffled.begin() + static_cast<std::ptrdiff_t>(shuffled.size() / 2),
                shuffled.end());
    ASSERT_EQ(encoded(JSONValue::Object::fromUnsorted(shuffled)), encoded(members));
  }
}

TEST(JSONProperties, everyTextIsOneStringAfterEncodingAndDecoding) {
  RandomJSON random(14);
  for (int round = 0; round < 5 * rounds; ++round) {
    const JSONValue value(random.bytes(random.below(40)));
    ASSERT_EQ(decodeJSON(encoded(value)), value);
  }
}

TEST(JSONProperties, noTextMakesTheDecoderDisagreeWithItself) {
  RandomJSON random(15);
  for (int round = 0; round < rounds; ++round) {
    std::string text = encoded(random.value());
    text[random.below(text.size())] = static_cast<char>(random.below(256));
    const auto decoded = decodeJSON(text);
    if (!decoded) continue;
    ASSERT_EQ(decodeJSON(encoded(*decoded)), decoded) << text;
  }
}

TEST(JSONProperties, everythingButNullsSurvivesTheWayToTheHostAndBack) {
  RandomJSON random(16);
  for (int round = 0; round < rounds; ++round) {
    const JSONValue::Object members = random.object();
    ASSERT_EQ(JSONValue(toJSONObject(toKiteValue(members))), withoutNulls(members));
  }
}

TEST(JSONProperties, equalityIsThatOfTheTexts) {
  RandomJSON random(17);
  for (int round = 0; round < rounds; ++round) {
    const JSONValue a = random.value(2);
    const JSONValue b = random.value(2);
    const bool isZero = a.real() != nullptr && *a.real() == 0.0;  // of either sign
    if (isZero) continue;
    ASSERT_EQ(a == b, encoded(a) == encoded(b)) << encoded(a) << " " << encoded(b);
  }
}

}  // namespace
}  // namespace kite::test
