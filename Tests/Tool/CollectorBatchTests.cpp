#include "Collector/Checks/Batch.h"

#include "CollectorRequests.h"

#include <gmock/gmock.h>

namespace kite::test {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;
using tool::Batch;
using tool::readBatch;
using tool::Refusal;

Refusal batchRefusal(const std::string& json) {
  const auto batch = readBatch(json, "trail-maps");
  EXPECT_FALSE(batch) << "the body was taken for good";
  return batch ? Refusal{0, 0, ""} : batch.error();
}

Refusal invalid(const std::string& message) { return {422, 102, message}; }

TEST(CollectorBatch, holdsTheEventsInOrder) {
  const auto batch = readBatch(aBody({aCustomEvent(anotherID), aCustomEvent(anID)}), "trail-maps");
  ASSERT_TRUE(batch);
  ASSERT_EQ(batch->events.size(), 2U);
  EXPECT_EQ(batch->requestTimestamp, 1765432200.0);
  EXPECT_EQ(batch->events[0].id, anotherID);
  EXPECT_EQ(batch->events[1].id, anID);
  EXPECT_EQ(batch->events[1].type, "Purchase");
  EXPECT_EQ(batch->events[1].timestamp, 1765432100.5);
}

TEST(CollectorBatch, keepsObjectsAsTheyWereWritten) {
  const std::string data = R"({ "big" : 12345678901234567.0, "e":1E2,)"
                           R"( "text":"\u00e9}\"", "deep":[{"a":{}} ] })";
  const auto batch = readBatch(aBody({anEvent("Purchase", data + " \n")}), "trail-maps");
  ASSERT_TRUE(batch);
  EXPECT_EQ(batch->events[0].data, data);
  EXPECT_EQ(batch->events[0].userInfo, R"({"country":"NZ"})");
  EXPECT_EQ(batch->events[0].userIDs, R"({"user_id":"u1"})");
}

TEST(CollectorBatch, knowsWhatTheDataTells) {
  const auto batch = readBatch(
      aBody({anEvent("Session", R"({"subtype":"session_start"})", anotherID), aCustomEvent(anID)}),
      "trail-maps");
  ASSERT_TRUE(batch);
  EXPECT_EQ(batch->events[0].facts.session, anotherID);
  EXPECT_EQ(batch->events[0].facts.name, "session_start");
  EXPECT_FALSE(batch->events[1].facts.name);
}

TEST(CollectorBatch, findsTheObjectsUnderEscapedKeys) {
  const auto json = replaced(aBody({aCustomEvent()}), R"("data")", R"("d\u0061ta")");
  const auto batch = readBatch(json, "trail-maps");
  ASSERT_TRUE(batch);
  EXPECT_EQ(batch->events[0].data, R"({"price":9.5})");
}

TEST(CollectorBatch, takesTheObjectsFromTheirOwnPlaceOnly) {
  const auto event = anEvent("Purchase", R"({"user":{"info":{"x":1}},"data":{"y":1},"ids":{}})");
  const auto batch = readBatch(aBody({event}), "trail-maps");
  ASSERT_TRUE(batch);
  EXPECT_EQ(batch->events[0].userInfo, R"({"country":"NZ"})");
  EXPECT_EQ(batch->events[0].data, R"({"user":{"info":{"x":1}},"data":{"y":1},"ids":{}})");
}

TEST(CollectorBatch, mayEchoTheLastReply) {
  const auto json =
      replaced(aBody({aCustomEvent()}), "{", R"({"delta":-1,"last_event_timestamp":2.5,)");
  EXPECT_TRUE(readBatch(json, "trail-maps"));
}

TEST(CollectorBatch, refusesWhatIsNotJSON) {
  EXPECT_EQ(batchRefusal("").code, 102);
  EXPECT_THAT(batchRefusal(R"({"events":[})").message, StartsWith("not JSON: "));
  EXPECT_THAT(batchRefusal(aBody({aCustomEvent()}) + "x").message, StartsWith("not JSON: "));
  EXPECT_THAT(batchRefusal(aBody({aCustomEvent()}) + "{}").message, StartsWith("not JSON: "));
}

TEST(CollectorBatch, refusesTextThatIsNotUTF8) {
  const auto json = replaced(aBody({aCustomEvent()}), "NZ", "N\xFF");
  EXPECT_THAT(batchRefusal(json).message, StartsWith("not JSON: "));
}

TEST(CollectorBatch, refusesDeepNestingWithoutFollowingIt) {
  const std::string deep = std::string(100'000, '[') + std::string(100'000, ']');
  EXPECT_THAT(batchRefusal(R"({"events":)" + deep + "}").message, StartsWith("not JSON: "));
}

TEST(CollectorBatch, mustBeAnObject) {
  EXPECT_EQ(batchRefusal("[]"), invalid("the body must be an object"));
  EXPECT_EQ(batchRefusal("null"), invalid("the body must be an object"));
}

TEST(CollectorBatch, mustHaveEvents) {
  EXPECT_EQ(batchRefusal("{}"), invalid("the body: events is missing"));
  EXPECT_EQ(batchRefusal(R"({"events":{}})"), invalid("the body: events must be an array"));
  EXPECT_EQ(batchRefusal(R"({"events":[]})"), invalid("the body: events is empty"));
}

TEST(CollectorBatch, mustEchoNumbers) {
  const std::string body = aBody({aCustomEvent()});
  EXPECT_EQ(batchRefusal(replaced(body, "{", R"({"delta":null,)")),
            invalid("the body: delta must be a number"));
  EXPECT_EQ(batchRefusal(replaced(body, "{", R"({"last_event_timestamp":"1",)")),
            invalid("the body: last_event_timestamp must be a number"));
}

TEST(CollectorBatch, hasNoOtherMembers) {
  EXPECT_EQ(batchRefusal(replaced(aBody({aCustomEvent()}), "{", R"({"version":4,)")),
            invalid("the body: version is unknown"));
}

TEST(CollectorBatch, hasNoKeyTwiceInOneObject) {
  const Refusal refusal = invalid("the body: a key is repeated in one object: price");
  EXPECT_EQ(batchRefusal(aBody({anEvent("Purchase", R"({"price":1,"price":2})")})), refusal);
  EXPECT_EQ(batchRefusal(aBody({anEvent("Purchase", R"({"a":[{"price":1,"b":2,"price":2}]})")})),
            refusal);
  EXPECT_EQ(batchRefusal(replaced(aBody({aCustomEvent()}), "]}", R"(],"events":[]})")),
            invalid("the body: a key is repeated in one object: events"));
}

TEST(CollectorBatch, isRefusedForOneBadEvent) {
  const auto bad = replaced(aCustomEvent(anotherID), "1765432100.5", "true");
  EXPECT_EQ(
      batchRefusal(aBody({aCustomEvent(), bad})),
      (Refusal{422, 101, "event " + std::string(anotherID) + ": timestamp must be a number"}));
}

TEST(CollectorBatch, hasOneRequestTimestamp) {
  const auto other = replaced(aCustomEvent(anotherID), "1765432200.0", "1765432200.5");
  EXPECT_EQ(batchRefusal(aBody({aCustomEvent(), other})),
            (Refusal{422, 101,
                     "event " + std::string(anotherID) +
                         ": request_timestamp must be the same in all events"}));
}

TEST(CollectorBatch, maySpellItsOneRequestTimestampDifferently) {
  const auto other = replaced(aCustomEvent(anotherID), "1765432200.0", "1765432200");
  EXPECT_TRUE(readBatch(aBody({aCustomEvent(), other}), "trail-maps"));
}

TEST(CollectorBatch, cutsLongKeysInItsRefusals) {
  const std::string key(100, 'k');
  EXPECT_EQ(batchRefusal(replaced(aBody({aCustomEvent()}), "{", R"({")" + key + R"(":1,)")),
            invalid("the body: " + std::string(64, 'k') + "… is unknown"));
}

}  // namespace
}  // namespace kite::test
