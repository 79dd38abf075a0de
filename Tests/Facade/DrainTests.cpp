#include <Kite/Drain.h>
#include <Kite/Kite.h>
#include <Kite/Status.h>

#include "Support/PumpingMainThread.h"
#include "Support/TestWorld.h"

#include <gmock/gmock.h>

#include <cstdint>
#include <thread>
#include <vector>

namespace kite::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr DrainLimits withDelivery{.deliverWithin = Tempra::Duration(1)};

/// A facade without a connection, whose events are pending. Uploads run while somebody waits.
class DrainTests : public testing::Test {
 protected:
  TestWorld world;
  std::shared_ptr<ManualQueue> heldStorage = std::make_shared<ManualQueue>();
  std::shared_ptr<ManualQueue> sync = std::make_shared<ManualQueue>();
  std::vector<DrainReport> reports;
  KiteManagerImpl kite{world.system.system()};

  void SetUp() override {
    world.network.respond(fails());
    world.syncQueue = sync;
  }

  KiteDependencies bundle() {
    auto bundle = world.dependencies();
    bundle.backgroundChecker = BackgroundChecker::uiApplication(
        world.application, std::make_shared<PumpingMainThread>(sync));
    return bundle;
  }
  void start() {
    kite.start(bundle());
    sync->drain();
  }
  void track(int count = 1) {
    for (int i = 0; i < count; ++i) kite.trackUserAction("action", {});
  }
  std::uint64_t pending() { return status(kite).ledger.pending; }
  void drainLater(DrainLimits limits = {}) {
    drain(kite, limits, [this](const DrainReport& report) { reports.push_back(report); });
  }
  std::size_t bodies() const { return world.network.requests().size(); }
};

// Persisting

TEST_F(DrainTests, putsEverythingOnDisk) {
  start();
  track(3);
  const auto report = drain(kite);
  EXPECT_EQ(report, (DrainReport{.persisted = pending(), .end = DrainEnd::persisted}));
  EXPECT_THAT(world.persistedEvents(), SizeIs(report.persisted));
  EXPECT_GT(report.persisted, 3U) << "the library's own events, too";
}

TEST_F(DrainTests, uploadsNothingWithoutTimeForIt) {
  start();
  track();
  const auto before = bodies();
  drain(kite);
  EXPECT_EQ(bodies(), before);
}

TEST_F(DrainTests, tellsWhatTheDiskDoesNotTake) {
  start();
  drain(kite);
  const auto saved = pending();
  world.keyValues->failWrites(true);
  track(2);
  EXPECT_EQ(drain(kite),
            (DrainReport{.persisted = saved, .inMemory = 2, .end = DrainEnd::notPersisted}));
}

TEST_F(DrainTests, givesADiskThatHangsItsTimeAndNoMore) {
  world.storageQueue = heldStorage;
  start();
  track();
  drainLater({.persistWithin = Tempra::Duration(3)});
  world.time->advance(Tempra::Duration(2.999));
  EXPECT_THAT(reports, IsEmpty());
  world.time->advance(Tempra::Duration(0.001));
  ASSERT_THAT(reports, SizeIs(1));
  EXPECT_EQ(reports[0].end, DrainEnd::deadline);
  EXPECT_GT(reports[0].inMemory, 0U);
  heldStorage->drain();
  EXPECT_THAT(reports, SizeIs(1));
}

TEST_F(DrainTests, isDoneAtOnceWithoutAnyTime) {
  world.storageQueue = heldStorage;
  start();
  track();
  drainLater({.persistWithin = Tempra::Duration(0)});
  world.time->advance(Tempra::Duration(0));
  ASSERT_THAT(reports, SizeIs(1));
  EXPECT_EQ(reports[0].end, DrainEnd::deadline);
}

// Delivering

TEST_F(DrainTests, uploadsNothingOnceItIsOver) {
  start();
  track();
  const auto before = bodies();
  drainLater(withDelivery);
  world.time->advance(withDelivery.persistWithin + withDelivery.deliverWithin);
  ASSERT_THAT(reports, SizeIs(1));
  EXPECT_EQ(reports[0].end, DrainEnd::deadline);
  sync->runOne();
  EXPECT_EQ(bodies(), before);
}

TEST_F(DrainTests, deliversBatchAfterBatchUntilNothingIsPending) {
  start();
  track(1200);
  const auto count = pending();
  const auto before = bodies();
  world.network.respond(answers(200));
  EXPECT_EQ(drain(kite, withDelivery),
            (DrainReport{.delivered = count, .end = DrainEnd::delivered}));
  EXPECT_EQ(bodies(), before + 3);
  EXPECT_THAT(world.persistedEvents(), IsEmpty()) << "the next run must not deliver them again";
}

TEST_F(DrainTests, deliversWhatTheDiskDoesNotTake) {
  world.keyValues->failWrites(true);
  start();
  track();
  const auto count = pending();
  world.network.respond(answers(200));
  EXPECT_EQ(drain(kite, withDelivery),
            (DrainReport{.delivered = count, .end = DrainEnd::delivered}));
}

TEST_F(DrainTests, deliversWhenNoSessionRunsAndStartsNoUploadsByThat) {
  start();
  world.enterBackground();
  sync->drain();
  const auto count = pending();
  world.network.respond(answers(200));
  EXPECT_EQ(drain(kite, withDelivery).delivered, count);
  const auto before = bodies();
  track();
  world.time->advance(Tempra::Duration(10));
  sync->drain();
  EXPECT_EQ(bodies(), before);
}

TEST_F(DrainTests, countsWhatWasDeliveredWhileItRan) {
  start();
  track();
  world.network.respond(answers(200));
  drain(kite, withDelivery);
  track(2);
  EXPECT_EQ(drain(kite, withDelivery).delivered, 2U);
  EXPECT_EQ(drain(kite, withDelivery), (DrainReport{.end = DrainEnd::delivered}));
}

TEST_F(DrainTests, stopsWhenNoEndpointAnswers) {
  start();
  track();
  const auto before = bodies();
  EXPECT_EQ(drain(kite, withDelivery),
            (DrainReport{.persisted = pending(), .end = DrainEnd::unreachable}));
  EXPECT_EQ(bodies(), before + 1);
}

TEST_F(DrainTests, stopsWhenABatchIsRefused) {
  start();
  track(600);
  const auto count = pending();
  world.network.respond(inTurn({answers(200), answers(500)}));
  EXPECT_EQ(drain(kite, withDelivery),
            (DrainReport{.delivered = 500, .persisted = count - 500, .end = DrainEnd::refused}));
  EXPECT_THAT(world.persistedEvents(), SizeIs(count - 500));
}

TEST_F(DrainTests, stopsWhenThePendingEventsCannotBeRead) {
  start();
  track();
  drain(kite);
  world.keyValues->failReads(true);
  EXPECT_EQ(drain(kite, withDelivery),
            (DrainReport{.persisted = pending(), .end = DrainEnd::notReadable}));
}

TEST_F(DrainTests, givesAServiceThatHangsItsTimeAndNoMore) {
  start();
  track();
  drainLater(withDelivery);
  world.time->advance(Tempra::Duration(0.999));
  EXPECT_THAT(reports, IsEmpty());
  world.time->advance(Tempra::Duration(0.001));
  EXPECT_THAT(reports, ElementsAre(DrainReport{.persisted = pending(), .end = DrainEnd::deadline}));
}

TEST_F(DrainTests, theTimeForDeliveryBeginsWhenThatForTheDiskEnds) {
  world.storageQueue = heldStorage;
  start();
  track();
  drainLater(withDelivery);
  world.time->advance(Tempra::Duration(1.249));
  EXPECT_THAT(reports, IsEmpty());
  world.time->advance(Tempra::Duration(0.001));
  ASSERT_THAT(reports, SizeIs(1));
  EXPECT_EQ(reports[0].end, DrainEnd::deadline);
}

TEST_F(DrainTests, uploadsNoFurtherBatchOnceItsTimeIsUp) {
  start();
  track(600);
  world.network.respond(answers(200));
  const auto before = bodies();
  drainLater(withDelivery);
  world.time->advance(Tempra::Duration(1));
  sync->drain();
  EXPECT_THAT(reports, SizeIs(1));
  EXPECT_LE(bodies(), before + 1);
}

// Any number, any time

TEST_F(DrainTests, severalAtATimeEndEachByItself) {
  world.storageQueue = heldStorage;
  start();
  track();
  drainLater();
  drainLater(withDelivery);
  drainLater({.deliverWithin = Tempra::Duration(5)});
  heldStorage->drain();
  EXPECT_THAT(reports, SizeIs(1));
  world.time->advance(Tempra::Duration(1));
  EXPECT_THAT(reports, SizeIs(2));
  world.time->advance(Tempra::Duration(4));
  ASSERT_THAT(reports, SizeIs(3));
  EXPECT_EQ(reports[0].end, DrainEnd::persisted);
  EXPECT_EQ(reports[1].end, DrainEnd::deadline);
  EXPECT_EQ(reports[2].end, DrainEnd::deadline);
}

TEST_F(DrainTests, severalAtATimeSendNoEventTwice) {
  start();
  track(10);
  const auto count = pending();
  const auto before = bodies();
  world.network.respond(answers(200));
  for (int i = 0; i < 3; ++i) drainLater(withDelivery);
  sync->drain();
  ASSERT_THAT(reports, SizeIs(3));
  for (const auto& report : reports) EXPECT_EQ(report.end, DrainEnd::delivered);
  EXPECT_EQ(bodies(), before + 1);
  EXPECT_EQ(status(kite).ledger.delivered, count);
}

TEST_F(DrainTests, leavesNoTimerBehind) {
  start();
  const auto before = world.time->armed();
  drain(kite);
  drain(kite, withDelivery);
  EXPECT_EQ(world.time->armed(), before);
}

TEST_F(DrainTests, leavesNoTimerBehindWhenTheirTimeIsUpBeforeTheyAreScheduled) {
  /// Fires shorter timers than a second before it returns, as a timer thread may.
  class Hasty final : public Tempra::Scheduler {
   public:
    explicit Hasty(std::shared_ptr<VirtualTime> time) : _time(std::move(time)) {}
    Tempra::Cancel schedule(Tempra::Duration first, Tempra::Duration period,
                            Tempra::Block block) override {
      auto cancel = _time->schedule(first, period, block);
      if (first < Tempra::Duration(0.5)) block();
      return cancel;
    }

   private:
    std::shared_ptr<VirtualTime> _time;
  };
  auto hasty = bundle();
  hasty.scheduler = std::make_shared<Hasty>(world.time);
  kite.start(hasty);
  sync->drain();
  const auto before = world.time->armed();
  drainLater(withDelivery);
  drainLater({.deliverWithin = Tempra::Duration(0.25)});
  world.time->advance(Tempra::Duration(1));
  EXPECT_THAT(reports, SizeIs(2));
  sync->drain();
  EXPECT_EQ(world.time->armed(), before);
}

TEST_F(DrainTests, waitsOnAThreadThatHasNoMainThreadToServe) {
  auto given = bundle();
  given.backgroundChecker = BackgroundChecker::noBackground();
  kite.start(given);
  track();
  EXPECT_EQ(drain(kite).end, DrainEnd::persisted);
}

TEST_F(DrainTests, waitsForOtherThreads) {
  world.storageQueue = heldStorage;
  auto given = bundle();
  given.backgroundChecker = BackgroundChecker::noBackground();
  kite.start(given);
  track();
  heldStorage->drain();
  std::thread caller([this] { reports.push_back(drain(kite)); });
  while (heldStorage->size() == 0) std::this_thread::yield();
  EXPECT_THAT(reports, IsEmpty());
  heldStorage->drain();
  caller.join();
  ASSERT_THAT(reports, SizeIs(1));
  EXPECT_EQ(reports[0].end, DrainEnd::persisted);
}

// The end of what it works with

TEST_F(DrainTests, callsBackOnceWhenAQueueEndsWithTheStepThatItWasToMake) {
  TestWorld second;
  for (const auto limits : {DrainLimits(), withDelivery}) {
    TestWorld first;
    auto kiteOfTwo = std::make_unique<KiteManagerImpl>(first.system.system());
    first.storageQueue = std::make_shared<ManualQueue>();
    kiteOfTwo->start(first.dependencies());
    reports.clear();
    drain(*kiteOfTwo, limits, [this](const DrainReport& report) { reports.push_back(report); });
    kiteOfTwo->start(second.dependencies());
    EXPECT_THAT(reports, IsEmpty());
    first.storageQueue.reset();
    ASSERT_THAT(reports, SizeIs(1));
    EXPECT_EQ(reports[0].end, DrainEnd::deadline);
    first.time->advance(Tempra::Duration(10));
    EXPECT_THAT(reports, SizeIs(1));
  }
}

TEST_F(DrainTests, outlivesTheFacade) {
  world.storageQueue = heldStorage;
  auto short_ = std::make_unique<KiteManagerImpl>(world.system.system());
  short_->start(world.dependencies());
  short_->trackUserAction("action", {});
  drain(*short_, {}, [this](const DrainReport& report) { reports.push_back(report); });
  short_.reset();
  heldStorage->drain();
  ASSERT_THAT(reports, SizeIs(1));
  EXPECT_EQ(reports[0].end, DrainEnd::persisted);
  EXPECT_THAT(world.persistedEvents(), SizeIs(reports[0].persisted));
}

TEST_F(DrainTests, doesNothingBeforeTheStart) {
  track();
  EXPECT_EQ(drain(kite, withDelivery), DrainReport());
  EXPECT_EQ(DrainReport().end, DrainEnd::notRunning);
  drainLater(withDelivery);
  EXPECT_THAT(reports, ElementsAre(DrainReport()));
  EXPECT_EQ(world.keyValues->writes(), 0);
}

}  // namespace
}  // namespace kite::test
