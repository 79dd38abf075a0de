#include <Kite/Drain.h>
#include <Kite/Kite.h>
#include <Kite/Status.h>

#include "Support/PumpingMainThread.h"
#include "Support/TestWorld.h"

#include <gmock/gmock.h>

#include <rapidcheck.h>
#include <limits>
#include <string>
#include <vector>

namespace kite::test {
namespace {

using testing::ElementsAre;

const double notANumber = std::numeric_limits<double>::quiet_NaN();

class StatusTests : public testing::Test {
 protected:
  TestWorld world;
  KiteManagerImpl kite{world.system.system()};

  void SetUp() override { world.network.respond(fails()); }

  void start() { kite.start(world.dependencies()); }
  void passSyncPeriod() { world.time->advance(Tempra::Duration(2)); }
  DroppedEvents dropped() { return status(kite).ledger.dropped; }
};

TEST_F(StatusTests, isEmptyBeforeTheStartButForTheEventsThatCameTooEarly) {
  EXPECT_EQ(status(kite).ledger, Ledger());
  kite.trackUserAction("a", {});
  kite.trackCustomEvent("a", {});
  kite.trackLog("a", Severity::debug, {});
  kite.trackDebugEvent({.severity = Severity::debug, .message = "m", .category = "c"});
  const auto early = status(kite);
  EXPECT_EQ(early.ledger, (Ledger{.tracked = 4, .dropped = {.notStarted = 4}}));
  EXPECT_EQ(early.inMemory + early.onDisk, 0U);
  EXPECT_FALSE(early.oldestAge || early.lastUpload);
  start();
  EXPECT_EQ(dropped(), (DroppedEvents{.notStarted = 4}));
}

TEST_F(StatusTests, countsWhereTheEventsAre) {
  start();
  kite.trackUserAction("a", {});
  const auto before = status(kite);
  EXPECT_EQ(before.inMemory + before.onDisk, before.ledger.pending);
  EXPECT_EQ(before.ledger.tracked, before.ledger.pending);
  drain(kite);
  kite.trackUserAction("b", {});
  const auto after = status(kite);
  EXPECT_EQ(after.onDisk, before.ledger.pending);
  EXPECT_EQ(after.inMemory, 1U);
}

TEST_F(StatusTests, countsUserActionsThatTheConsentForbids) {
  start();
  const auto before = status(kite).ledger;
  kite.setAnalyticsTrackingConsent(false);
  kite.setProfilingTrackingConsent(false);
  const auto tracked = status(kite).ledger.tracked;
  kite.trackUserAction("a", {});
  kite.trackCustomEvent("a", {});
  EXPECT_EQ(dropped(), (DroppedEvents{.noConsent = 1}));
  EXPECT_EQ(status(kite).ledger.tracked, tracked + 2);
  EXPECT_GE(tracked, before.tracked);
}

TEST_F(StatusTests, countsCustomEventsOfTheBackground) {
  start();
  world.application->setState(ApplicationState::background);
  kite.trackCustomEvent("a", {});
  kite.trackUserAction("a", {});
  EXPECT_EQ(dropped(), (DroppedEvents{.inBackground = 1}));
}

TEST_F(StatusTests, countsWhatDoesNotEncodeWhenItsBatchIsTaken) {
  start();
  kite.trackCustomEvent("a", {{"x", notANumber}});
  kite.trackCustomEvent("a", {{"x", 1}});
  EXPECT_EQ(dropped(), DroppedEvents());
  world.network.respond(answers(200));
  passSyncPeriod();
  const auto ledger = status(kite).ledger;
  EXPECT_EQ(ledger.dropped, (DroppedEvents{.notEncodable = 1}));
  EXPECT_EQ(ledger.delivered + 1, ledger.tracked);
}

TEST_F(StatusTests, saysHowOldTheOldestPendingEventIs) {
  start();
  world.network.respond(answers(200));
  passSyncPeriod();
  EXPECT_EQ(status(kite).oldestAge, std::nullopt);
  world.network.respond(fails());
  kite.trackUserAction("a", {});
  world.system.setNow(world.system.now() + 40);
  kite.trackUserAction("b", {});
  world.system.setNow(world.system.now() + 2.5);
  EXPECT_EQ(status(kite).oldestAge, 42.5);
  drain(kite);
  EXPECT_EQ(status(kite).oldestAge, 42.5) << "read from the disk";
  world.keyValues->failReads(true);
  EXPECT_EQ(status(kite).oldestAge, std::nullopt);
}

TEST_F(StatusTests, knowsTheLastUpload) {
  start();
  passSyncPeriod();
  const auto failed = status(kite).lastUpload;
  ASSERT_TRUE(failed);
  EXPECT_EQ(failed->pending, status(kite).ledger.pending);
  EXPECT_TRUE(failed->isUnreachable);
  EXPECT_EQ(failed->error, "no connection");
  world.network.respond(answers(201));
  passSyncPeriod();
  const auto taken = status(kite).lastUpload;
  ASSERT_TRUE(taken);
  EXPECT_EQ(*taken, (UploadReport{.time = world.system.now(),
                                  .endpoint = "https://staging.test",
                                  .statusCode = 201,
                                  .events = failed->events,
                                  .pending = failed->pending}));
}

TEST_F(StatusTests, callsBackAfterEachUploadInTheOrderOfRegistration) {
  std::vector<std::string> calls;
  onUpload(kite, [&](const UploadReport& upload) { calls.push_back("1 " + *upload.error); });
  onUpload(kite, [&](const UploadReport& upload) { calls.push_back("2 " + *upload.error); });
  start();
  EXPECT_THAT(calls, ElementsAre("1 no connection", "2 no connection"));
  passSyncPeriod();
  EXPECT_EQ(calls.size(), 4U);
}

TEST_F(StatusTests, aBatchIsOutOfTheQueueWhenItsUploadIsTold) {
  start();
  std::vector<std::uint64_t> pending;
  onUpload(kite, [&](const UploadReport&) { pending.push_back(status(kite).ledger.pending); });
  world.network.respond(answers(200));
  passSyncPeriod();
  EXPECT_THAT(pending, ElementsAre(0U));
}

/// A facade, and what a few counters make of the same steps.
struct CountedKite {
  TestWorld world;
  std::shared_ptr<ManualQueue> sync = std::make_shared<ManualQueue>();
  KiteManagerImpl kite{world.system.system()};
  Ledger model;
  std::uint64_t unencodable = 0;  // of the pending ones
  bool isConnected = false, mayTrack = true, isInBackground = false;

  CountedKite() {
    world.network.respond(fails());
    world.syncQueue = sync;
    auto bundle = world.dependencies();
    bundle.backgroundChecker = BackgroundChecker::uiApplication(
        world.application, std::make_shared<PumpingMainThread>(sync));
    kite.start(bundle);
    sync->drain();
    model = status(kite).ledger;
  }
  void keep(bool isEncodable) {
    ++model.tracked;
    ++model.pending;
    if (!isEncodable) ++unencodable;
  }
  void drop(std::uint64_t DroppedEvents::*reason) {
    ++model.tracked;
    ++(model.dropped.*reason);
  }
  void trackAction(bool isEncodable) {
    kite.trackUserAction("a", {{"x", isEncodable ? 1.0 : notANumber}});
    mayTrack ? keep(isEncodable) : drop(&DroppedEvents::noConsent);
  }
  void trackCustomEvent() {
    kite.trackCustomEvent("t", {});
    isInBackground ? drop(&DroppedEvents::inBackground) : keep(true);
  }
  void trackLog() {
    kite.trackLog("l", Severity::error, {});
    keep(true);
  }
  void changeConsent() {
    const auto before = status(kite).ledger.tracked;
    mayTrack = !mayTrack;
    kite.setAnalyticsTrackingConsent(mayTrack);
    kite.setProfilingTrackingConsent(mayTrack);
    RC_ASSERT(status(kite).ledger.tracked == before);
  }
  void changeSides() {
    isInBackground = !isInBackground;
    world.application->setState(isInBackground ? ApplicationState::background
                                               : ApplicationState::active);
  }
  void changeConnection() {
    isConnected = !isConnected;
    world.network.respond(isConnected ? answers(200) : fails());
  }
  // Without a request when there is nothing to put into it.
  void upload() {
    if (!isConnected && unencodable < model.pending) return;
    model.delivered += model.pending - unencodable;
    model.dropped.notEncodable += std::exchange(unencodable, 0);
    model.pending = 0;
  }
  void passTime() {
    world.time->advance(Tempra::Duration(2));
    sync->drain();
    upload();
  }
  void deliver() {
    drain(kite, {.deliverWithin = Tempra::Duration(1)});
    upload();
  }
  void step(int number) {
    switch (number) {
      case 0:
        return changeConsent();
      case 1:
        return changeSides();
      case 2:
        return changeConnection();
      case 3:
        return passTime();
      case 4:
        return deliver();
      case 5:
        return trackAction(/*isEncodable=*/false);
      case 6:
        return trackCustomEvent();
      case 7:
        return trackLog();
      default:
        return trackAction(/*isEncodable=*/true);
    }
  }
};

TEST(StatusProperties, theLedgerIsThatOfAFewCountersAndAddsUpAlways) {
  EXPECT_TRUE(rc::check("ledger", [] {
    CountedKite counted;
    for (const int number : *rc::gen::container<std::vector<int>>(rc::gen::inRange(0, 12))) {
      counted.step(number);
      const auto found = status(counted.kite);
      RC_ASSERT(found.ledger == counted.model);
      RC_ASSERT(found.ledger.tracked ==
                found.ledger.pending + found.ledger.delivered + found.ledger.dropped.total());
      RC_ASSERT(found.inMemory + found.onDisk == found.ledger.pending);
    }
  }));
}

}  // namespace
}  // namespace kite::test
