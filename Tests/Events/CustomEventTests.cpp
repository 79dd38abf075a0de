#include "Events/CustomEvent.h"

#include "Events/StoredEvent.h"
#include "Support/CatchFatalErrors.h"
#include "Support/FakeSystem.h"

#include <gmock/gmock.h>

namespace kite::test {
namespace {

CustomEvent named(std::string table) {
  return {std::move(table),
          {.data = {{"total", 3}, {"note", nullptr}}, .id = FakeSystem::uuid(1), .timestamp = 12.5},
          User{.info = {{"a", 1}}, .ids = {}}};
}

TEST(CustomEventTests, isOfTheKindOfItsTable) {
  EXPECT_EQ(named("Orders").type(), EventType::custom("Orders"));
}

TEST(CustomEventTests, takesIdentityAndTimeFromItsPayload) {
  const auto event = named("Orders");
  EXPECT_EQ(event.id(), FakeSystem::uuid(1).text());
  EXPECT_EQ(event.timestamp(), 12.5);
  EXPECT_EQ(event.requestTimestamp(), std::nullopt);
  EXPECT_EQ(event.user()->info, (JSONValue::Object{{"a", 1}}));
}

TEST(CustomEventTests, carriesTheHostsDataAndNothingElse) {
  EXPECT_EQ(named("Orders").data(), (JSONValue::Object{{"total", 3}, {"note", nullptr}}));
}

TEST(CustomEventTests, aReservedTableNameStopsTheProcessWhenTheRecordIsMade) {
  EXPECT_FATAL(StoredEvent::from(named("Install"), "app"),
               "You cannot use Install as a name for a custom event.");
}

TEST(CustomEventTests, aTableNamedLikeAnUnreservedKindMakesARecord) {
  EXPECT_EQ(StoredEvent::from(named("UserAction"), "app").type, EventType::custom("UserAction"));
}

}  // namespace
}  // namespace kite::test
