#include "Core/Event/StoredEvent.h"

#include "Support/CatchFatalErrors.h"
#include "Support/Events.h"
#include "Support/ParsedJSON.h"

#include <gmock/gmock.h>

#include <cmath>

namespace kite::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct Encoding {
  std::string text;
  std::optional<EncodingError> error;
};

Encoding encode(const StoredEvent& event) {
  Encoding result;
  result.error = appendJSON(result.text, event);
  return result;
}

std::optional<StoredEvent> decode(std::string_view text) { return decodeStoredEvent(parsed(text)); }

/// The text of an event with one place of it changed.
std::string changed(const std::string& from, const std::string& to) {
  std::string text = textOfAnEvent("E-1");
  text.replace(text.find(from), from.size(), to);
  return text;
}

TEST(StoredEventTests, encodesItsFieldsInTheirOrder) {
  EXPECT_EQ(encode(anEvent("E-1")).text, textOfAnEvent("E-1"));
}

TEST(StoredEventTests, encodesARequestTimestampBetweenTimestampAndApp) {
  auto event = anEvent("E-1");
  event.requestTimestamp = 20;
  EXPECT_EQ(encode(event).text, changed(R"(,"app")", R"(,"request_timestamp":20.0,"app")"));
}

TEST(StoredEventTests, anAbsentRequestTimestampIsLeftOutAndComesBackAbsent) {
  const auto event = anEvent("E-1");
  EXPECT_EQ(encode(event).text.find("request_timestamp"), std::string::npos);
  EXPECT_EQ(decode(encode(event).text), event);
}

TEST(StoredEventTests, everyFieldComesBackEqual) {
  auto event = anEvent("E \"1\"\n");
  event.requestTimestamp = 20.25;
  event.timestamp = 1765432100.123456;
  EXPECT_EQ(decode(encode(event).text), event);
}

TEST(StoredEventTests, aNullRequestTimestampIsNone) {
  const auto event = decode(changed(R"(,"app")", R"(,"request_timestamp":null,"app")"));
  EXPECT_EQ(event, anEvent("E-1"));
}

TEST(StoredEventTests, aRequestTimestampOfAnotherTypeFailsTheRecord) {
  EXPECT_EQ(decode(changed(R"(,"app")", R"(,"request_timestamp":"20","app")")), std::nullopt);
}

TEST(StoredEventTests, anUnknownTypeBecomesACustomEventOfThatName) {
  const auto event = decode(changed("UserAction", "Purchase"));
  ASSERT_TRUE(event);
  EXPECT_EQ(event->type, EventType::custom("Purchase"));
}

TEST(StoredEventTests, anEmptyTypeFailsTheRecord) {
  EXPECT_EQ(decode(changed("UserAction", "")), std::nullopt);
}

TEST(StoredEventTests, aCustomEventNamedLikeABuiltInOneComesBackAsThatOne) {
  auto event = anEvent("E-1");
  event.type = EventType::custom("UserAction");
  const auto back = decode(encode(event).text);
  ASSERT_TRUE(back);
  EXPECT_EQ(back->type, EventType(EventType::Case::userAction));
  EXPECT_NE(back, event);
}

TEST(StoredEventTests, aReservedCustomNameStopsTheProcessWhenItIsEncoded) {
  auto event = anEvent("E-1");
  event.type = EventType::custom("Session");
  EXPECT_FATAL(encode(event), "You cannot use Session as a name for a custom event.");
}

TEST(StoredEventTests, aReservedNameInLowerCaseIsAccepted) {
  auto event = anEvent("E-1");
  event.type = EventType::custom("session");
  EXPECT_EQ(encode(event).text, changed("UserAction", "session"));
}

TEST(StoredEventTests, everyOtherFieldIsRequired) {
  for (const char* key : {"type", "id", "timestamp", "app", "user", "data", "info", "ids"}) {
    const std::string quoted = "\"" + std::string(key) + "\"";
    EXPECT_EQ(decode(changed(quoted, "\"other\"")), std::nullopt) << key;
  }
}

TEST(StoredEventTests, aFieldOfAnotherTypeFailsTheRecord) {
  const std::string id = R"("id":"E-1")";
  EXPECT_EQ(decode(changed(R"("type":"UserAction")", R"("type":1)")), std::nullopt);
  EXPECT_EQ(decode(changed(id, R"("id":1)")), std::nullopt);
  EXPECT_EQ(decode(changed("12.5", R"("12.5")")), std::nullopt);
  EXPECT_EQ(decode(changed("12.5", "true")), std::nullopt);
  EXPECT_EQ(decode(changed(R"("trail-maps")", "null")), std::nullopt);
  EXPECT_EQ(decode(changed(R"({"country":"NZ"})", "[]")), std::nullopt);
  EXPECT_EQ(decode(changed(R"({"user_id":"U-1"})", "[]")), std::nullopt);
  EXPECT_EQ(decode(changed(R"("U-1")", "1")), std::nullopt);
  EXPECT_EQ(decode(changed(R"({"action_info":{"price":9.5},"action_kind":"buy"})", "null")),
            std::nullopt);
  EXPECT_EQ(decode("[]"), std::nullopt);
}

TEST(StoredEventTests, aTimestampWithoutAFractionIsANumberAllTheSame) {
  const auto event = decode(changed("12.5", "12"));
  ASSERT_TRUE(event);
  EXPECT_EQ(event->timestamp, 12.0);
}

TEST(StoredEventTests, unknownKeysAreIgnored) {
  EXPECT_EQ(decode(changed(R"("app")", R"("more":[1],"app")")), anEvent("E-1"));
}

TEST(StoredEventTests, emptyInfoAndIdsAreValid) {
  const auto event = anEvent("E-1", User{});
  EXPECT_NE(encode(event).text.find(R"("user":{"info":{},"ids":{}})"), std::string::npos);
  EXPECT_EQ(decode(encode(event).text), event);
}

TEST(StoredEventTests, aTimestampThatIsNotFiniteStopsTheEncodingThere) {
  auto event = anUnencodableEvent("E-1");
  event.timestamp = std::nan("");
  const auto encoding = encode(event);
  ASSERT_TRUE(encoding.error);
  EXPECT_THAT(encoding.error->codingPath, ElementsAre("timestamp"));
  EXPECT_EQ(encoding.text, R"({"type":"UserAction","id":"E-1","timestamp":)");
}

TEST(StoredEventTests, aRequestTimestampThatIsNotFiniteStopsTheEncodingThere) {
  auto event = anUnencodableEvent("E-1");
  event.requestTimestamp = std::nan("");
  const auto encoding = encode(event);
  ASSERT_TRUE(encoding.error);
  EXPECT_THAT(encoding.error->codingPath, ElementsAre("request_timestamp"));
}

TEST(StoredEventTests, anUnencodableUserIsFoundBeforeUnencodableData) {
  auto event = anUnencodableEvent("E-1");
  event.user = User{.info = {{"score", std::nan("")}}, .ids = {}};
  const auto encoding = encode(event);
  ASSERT_TRUE(encoding.error);
  EXPECT_THAT(encoding.error->codingPath, ElementsAre("user", "info", "score"));
}

TEST(StoredEventTests, thePathOfAnErrorBeginsAtTheEvent) {
  const auto encoding = encode(anUnencodableEvent("E-1"));
  ASSERT_TRUE(encoding.error);
  EXPECT_THAT(encoding.error->codingPath, ElementsAre("data", "action_info", "price"));
}

/// A value with so many containers around it.
JSONValue nested(int depth) {
  JSONValue value = 1;
  for (int i = 0; i < depth; ++i) value = JSONValue(JSONValue::Array{value});
  return value;
}

TEST(StoredEventTests, theEventItselfCountsInTheDepthThatEncodes) {
  auto event = anEvent("E-1");
  event.data = {{"deep", nested(maximumEncodedDepth - 2)}};
  EXPECT_EQ(encode(event).error, std::nullopt);
  event.data = {{"deep", nested(maximumEncodedDepth - 1)}};
  EXPECT_NE(encode(event).error, std::nullopt);
}

TEST(StoredEventTests, theUserBlockCountsInTheDepthThatEncodes) {
  const User deepest{.info = {{"deep", nested(maximumEncodedDepth - 3)}}, .ids = {}};
  EXPECT_EQ(encode(anEvent("E-1", deepest)).error, std::nullopt);
  const User tooDeep{.info = {{"deep", nested(maximumEncodedDepth - 2)}}, .ids = {}};
  EXPECT_NE(encode(anEvent("E-1", tooDeep)).error, std::nullopt);
}

TEST(StoredEventTests, eventsAreEqualWhenAllSevenFieldsAre) {
  const auto event = anEvent("E-1");
  EXPECT_EQ(event, anEvent("E-1"));
  std::vector<StoredEvent> others(7, event);
  others[0].type = EventType::Case::session;
  others[1].id = "E-2";
  others[2].timestamp = 13;
  others[3].requestTimestamp = 1;
  others[4].app = "other";
  others[5].user = aUser("AU");
  others[6].data = {};
  for (const auto& other : others) EXPECT_NE(event, other);
}

}  // namespace
}  // namespace kite::test
