#include "Support/FakeSystem.h"
#include "Support/ParsedJSON.h"
#include "Support/TrackedEvents.h"

#include <gmock/gmock.h>

namespace kite::test {
namespace {

UserInfoUpdated::Payload aChangeOfThreeKeys() {
  return {.oldUserInfo = {{"a", 1}},
          .newUserInfo = {{"a", 2}, {"b", nullptr}},
          .updatedKeys = {"a", "b"},
          .lostKeys = {"c"},
          .id = FakeSystem::uuid(1),
          .timestamp = 12.5};
}

TEST(UserInfoUpdatedTests, tellsWhatItIsFromItsPayload) {
  const auto event = tracked(aChangeOfThreeKeys(), {.info = {{"a", 2}}, .ids = {}});
  EXPECT_EQ(event.type(), EventType(EventType::Case::userInfoUpdated));
  EXPECT_EQ(event.id(), FakeSystem::uuid(1).text());
  EXPECT_EQ(event.timestamp(), 12.5);
  EXPECT_EQ(event.requestTimestamp(), std::nullopt);
  EXPECT_EQ(event.user()->info, (JSONValue::Object{{"a", 2}}));
}

TEST(UserInfoUpdatedTests, carriesBothUserInfosAndTheListsOfKeysInTheirOrder) {
  auto payload = aChangeOfThreeKeys();
  payload.updatedKeys = {"b", "a"};
  EXPECT_EQ(tracked(payload).data(), parsedObject(R"({
    "old_user_info": {"a": 1},
    "new_user_info": {"a": 2, "b": null},
    "updated_keys": ["b", "a"],
    "lost_keys": ["c"]
  })"));
}

TEST(UserInfoUpdatedTests, emptyListsStayInPlace) {
  auto payload = aChangeOfThreeKeys();
  payload.lostKeys = {};
  EXPECT_EQ(*tracked(payload).data().at("lost_keys"), JSONValue(JSONValue::Array{}));
}

}  // namespace
}  // namespace kite::test
