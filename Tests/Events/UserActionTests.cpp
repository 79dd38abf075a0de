#include "Support/FakeSystem.h"
#include "Support/TrackedEvents.h"

#include <gmock/gmock.h>

namespace kite::test {
namespace {

UserAction::Payload inASession() {
  return {.id = FakeSystem::uuid(1),
          .timestamp = 12.5,
          .actionKind = "buy",
          .actionInfo = {{"price", 9.5}},
          .secondsFromSessionStart = 2.25,
          .sessionId = FakeSystem::uuid(2),
          .processId = FakeSystem::uuid(3),
          .lastForegroundSessionId = std::nullopt,
          .isBackgroundEvent = false};
}

UserAction::Payload outsideAnySession() {
  auto payload = inASession();
  payload.secondsFromSessionStart = std::nullopt;
  payload.sessionId = std::nullopt;
  payload.lastForegroundSessionId = FakeSystem::uuid(4);
  payload.isBackgroundEvent = true;
  return payload;
}

TEST(UserActionTests, tellsWhatItIsFromItsPayload) {
  const auto event = tracked(inASession(), {.info = {{"a", 1}}, .ids = {}});
  EXPECT_EQ(event.type(), EventType(EventType::Case::userAction));
  EXPECT_EQ(event.id(), FakeSystem::uuid(1).text());
  EXPECT_EQ(event.timestamp(), 12.5);
  EXPECT_EQ(event.requestTimestamp(), std::nullopt);
  EXPECT_EQ(event.user()->info, (JSONValue::Object{{"a", 1}}));
}

TEST(UserActionTests, inASessionHasItsIdAndAge) {
  EXPECT_EQ(tracked(inASession()).data(),
            (JSONValue::Object{{"action_kind", "buy"},
                               {"action_info", JSONValue::Object{{"price", 9.5}}},
                               {"seconds_from_session_start", 2.25},
                               {"session_id", FakeSystem::uuid(2).text()},
                               {"process_id", FakeSystem::uuid(3).text()},
                               {"last_foreground_session_id", nullptr},
                               {"is_background_event", false}}));
}

TEST(UserActionTests, outsideAnySessionKeepsTheKeysOfWhatItLacksAsNull) {
  EXPECT_EQ(tracked(outsideAnySession()).data(),
            (JSONValue::Object{{"action_kind", "buy"},
                               {"action_info", JSONValue::Object{{"price", 9.5}}},
                               {"seconds_from_session_start", nullptr},
                               {"session_id", nullptr},
                               {"process_id", FakeSystem::uuid(3).text()},
                               {"last_foreground_session_id", FakeSystem::uuid(4).text()},
                               {"is_background_event", true}}));
}

}  // namespace
}  // namespace kite::test
