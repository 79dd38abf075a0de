#include "Events/StoredEvent.h"

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
std::string altered(const std::string& from, const std::string& to) {
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
  EXPECT_EQ(encode(event).text, altered(R"(,"app")", R"(,"request_timestamp":20.0,"app")"));
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
  const auto event = decode(altered(R"(,"app")", R"(,"request_timestamp":null,"app")"));
  EXPECT_EQ(event, anEvent("E-1"));
}

TEST(StoredEventTests, aRequestTimestampOfAnotherTypeFailsTheRecord) {
  EXPECT_EQ(decode(altered(R"(,"app")", R"(,"request_timestamp":"20","app")")), std::nullopt);
}

TEST(StoredEventTests, anUnknownTypeBecomesACustomEventOfThatName) {
  const auto event = decode(altered("UserAction", "Purchase"));
  ASSERT_TRUE(event);
  EXPECT_EQ(event->type, EventType::custom("Purchase"));
}

TEST(StoredEventTests, anEmptyTypeFailsTheRecord) {
  EXPECT_EQ(decode(altered("UserAction", "")), std::nullopt);
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
  EXPECT_EQ(encode(event).text, altered("UserAction", "session"));
}

TEST(StoredEventTests, everyOtherFieldIsRequired) {
  for (const char* key : {"type", "id", "timestamp", "app", "user", "data", "info", "ids"}) {
    const std::string quoted = std::string("\"") + key + "\"";
    EXPECT_EQ(decode(altered(quoted, "\"other\"")), std::nullopt) << key;
  }
}

TEST(StoredEventTests, aFieldOfAnotherTypeFailsTheRecord) {
  const std::string id = R"("id":"E-1")";
  EXPECT_EQ(decode(altered(R"("type":"UserAction")", R"("type":1)")), std::nullopt);
  EXPECT_EQ(decode(altered(id, R"("id":1)")), std::nullopt);
  EXPECT_EQ(decode(altered("12.5", R"("12.5")")), std::nullopt);
  EXPECT_EQ(decode(altered("12.5", "true")), std::nullopt);
  EXPECT_EQ(decode(altered(R"("trail-maps")", "null")), std::nullopt);
  for (const char* user : {"null", "[]", R"("U-1")", "1"})
    EXPECT_EQ(decode(altered(R"({"info":{"country":"NZ"},"ids":{"user_id":"U-1"}})", user)),
              std::nullopt)
        << user;
  EXPECT_EQ(decode(altered(R"({"country":"NZ"})", "[]")), std::nullopt);
  EXPECT_EQ(decode(altered(R"({"user_id":"U-1"})", "[]")), std::nullopt);
  EXPECT_EQ(decode(altered(R"("U-1")", "1")), std::nullopt);
  EXPECT_EQ(decode(altered(R"({"action_info":{"price":9.5},"action_kind":"buy"})", "null")),
            std::nullopt);
  EXPECT_EQ(decode("[]"), std::nullopt);
}

TEST(StoredEventTests, aTimestampWithoutAFractionIsANumberAllTheSame) {
  const auto event = decode(altered("12.5", "12"));
  ASSERT_TRUE(event);
  EXPECT_EQ(event->timestamp, 12.0);
}

TEST(StoredEventTests, unknownKeysAreIgnored) {
  EXPECT_EQ(decode(altered(R"("app")", R"("more":[1],"app")")), anEvent("E-1"));
}

TEST(StoredEventTests, emptyInfoAndIdsAreValid) {
  const auto event = anEvent("E-1", User{});
  EXPECT_NE(encode(event).text.find(R"("user":{"info":{},"ids":{}})"), std::string::npos);
  EXPECT_EQ(decode(encode(event).text), event);
}

TEST(StoredEventTests, severalIdentifiersAreOneObjectInTheOrderOfTheirNames) {
  const User user{.info = {}, .ids = {{"user_id", "U-1"}, {"account", "A-2"}, {"device", "D-3"}}};
  EXPECT_NE(encode(anEvent("E-1", user))
                .text.find(R"("ids":{"account":"A-2","device":"D-3","user_id":"U-1"})"),
            std::string::npos);
  EXPECT_EQ(decode(encode(anEvent("E-1", user)).text), anEvent("E-1", user));
}

/// An event of a kind that knows when it was sent.
struct SentEvent {
  EventType type() const { return EventType::Case::debugEvent; }
  std::string id() const { return "E-9"; }
  double timestamp() const { return 3.5; }
  std::optional<double> requestTimestamp() const { return 7.5; }
  Shared<User> user() const { return aUser(); }
  JSONValue::Object data() const { return {{"a", 1}}; }
};

TEST(StoredEventTests, takesAllSixValuesOfItsEvent) {
  EXPECT_EQ(StoredEvent::from(SentEvent(), "trail-maps"),
            (StoredEvent{.type = EventType::Case::debugEvent,
                         .id = "E-9",
                         .timestamp = 3.5,
                         .requestTimestamp = 7.5,
                         .app = "trail-maps",
                         .user = aUser(),
                         .data = {{"a", 1}}}));
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
  auto event = anEvent("E-1");
  event.requestTimestamp = 20;
  auto same = anEvent("E-1");
  same.requestTimestamp = 20;
  EXPECT_EQ(event, same);
  std::vector<StoredEvent> others(8, event);
  others[0].type = EventType::Case::session;
  others[1].id = "E-2";
  others[2].timestamp = 13;
  others[3].requestTimestamp = std::nullopt;
  others[4].requestTimestamp = 21;
  others[5].app = "other";
  others[6].user = aUser("AU");
  others[7].data = {};
  for (const auto& other : others) EXPECT_NE(event, other);
}

TEST(StoredEventTests, usersAreEqualWhenInfoAndIdentifiersAre) {
  const User user{.info = {{"a", 1}}, .ids = {{"user_id", "U-1"}}};
  const auto with = [](JSONValue::Object info,
                       std::map<std::string, std::string, std::less<>> ids) {
    return User{.info = std::move(info), .ids = std::move(ids)};
  };
  EXPECT_EQ(user, with({{"a", 1}}, {{"user_id", "U-1"}}));
  EXPECT_NE(user, with({{"a", 2}}, {{"user_id", "U-1"}}));
  EXPECT_NE(user, with({{"a", 1}}, {{"user_id", "U-2"}}));
  EXPECT_NE(user, with({{"a", 1}}, {}));
}

}  // namespace
}  // namespace kite::test
