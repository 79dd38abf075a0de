#include "Support/CatchFatalErrors.h"
#include "Support/FakeSystem.h"
#include "Support/TrackedEvents.h"

#include <gmock/gmock.h>

namespace kite::test {
namespace {

TrackedEvent named(std::string table) {
  const CustomEvent::Payload payload{
      .data = {{"total", 3}, {"note", nullptr}}, .id = FakeSystem::uuid(1), .timestamp = 12.5};
  return tracked(CustomEvent{std::move(table), payload}, {.info = {{"a", 1}}, .ids = {}});
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

TEST(CustomEventTests, aReservedTableNameStopsTheProcessWhenItIsTracked) {
  EXPECT_FATAL(named("Install"), "You cannot use Install as a name for a custom event.");
}

TEST(CustomEventTests, aTableNamedLikeAnUnreservedKindMakesARecord) {
  EXPECT_EQ(named("UserAction").record().type, EventType::custom("UserAction"));
}

}  // namespace
}  // namespace kite::test
