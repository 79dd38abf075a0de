#include <Kite/Kite.h>

#include "Support/TestWorld.h"

#include <gmock/gmock.h>

namespace kite::test {
namespace {

using Object = JSONValue::Object;

/// The identifiers and times of the events that a facade makes itself.
///
/// Its clock is a second later at every reading, and every reading has a fraction.
class KiteEventStampTests : public testing::Test {
 protected:
  TestWorld world;
  System machine = world.tickingSystem();
  KiteManagerImpl kite{machine};

  void SetUp() override {
    world.network.respond(answers(500));
    world.system.setNow(world.time->now() + 0.25);
    kite.start(world.dependencies());
  }

  double reading() const { return machine.now().secondsSince1970; }
  UUID nextIdentifier() const { return FakeSystem::uuid(world.system.drawnUUIDs() + 1); }

  /// Calls twice; both events must be stamped by the machine as the call was made.
  template <class Call>
  void expectFreshStamps(std::string_view type, int readingsUpToTheStamp, Call call) {
    const auto firstId = nextIdentifier();
    const auto firstReading = reading();
    call();
    const auto secondId = nextIdentifier();
    const auto secondReading = reading();
    call();
    const auto events = world.flushedEvents(type);
    ASSERT_EQ(events.size(), 2U);
    ASSERT_NE(firstId, secondId);
    expectStamp(events[0], firstId, firstReading + readingsUpToTheStamp);
    expectStamp(events[1], secondId, secondReading + readingsUpToTheStamp);
  }
  static void expectStamp(const Object& event, const UUID& id, double timestamp) {
    EXPECT_EQ(*event.at("id"), JSONValue(id.text()));
    EXPECT_EQ(*event.at("timestamp"), JSONValue(timestamp));
  }
};

TEST_F(KiteEventStampTests, aUserActionIsStampedAnewWhenItsPayloadIsBuilt) {
  expectFreshStamps("UserAction", 2, [this] { kite.trackUserAction("a", {}); });
}

TEST_F(KiteEventStampTests, aUserActionsSecondsAreThoseOfTheCallNotOfItsStamp) {
  const auto sessionStart = world.time->now().secondsSince1970;
  kite.trackUserAction("a", {});
  const auto actions = world.flushedEvents("UserAction");
  ASSERT_EQ(actions.size(), 1U);
  const double stamp = *actions.front().at("timestamp")->real();
  const auto& data = *actions.front().at("data")->object();
  EXPECT_EQ(*data.at("seconds_from_session_start"), JSONValue(stamp - 1 - sessionStart));
}

TEST_F(KiteEventStampTests, aUserActionInTheBackgroundIsStampedTheSameWay) {
  world.enterBackground();
  expectFreshStamps("UserAction", 2, [this] { kite.trackUserAction("a", {}); });
}

TEST_F(KiteEventStampTests, aCustomEventIsStampedInTheCall) {
  expectFreshStamps("Orders", 1, [this] { kite.trackCustomEvent("Orders", {}); });
}

TEST_F(KiteEventStampTests, aDebugEventIsStampedInTheCall) {
  expectFreshStamps("DebugEvent", 1, [this] {
    kite.trackDebugEvent({.severity = Severity::debug, .message = "m", .category = "c"});
  });
}

TEST_F(KiteEventStampTests, aLogIsStampedInTheCall) {
  expectFreshStamps("DebugEvent", 1, [this] { kite.trackLog("a", Severity::debug, {}); });
}

}  // namespace
}  // namespace kite::test
