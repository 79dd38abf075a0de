#include "Queue/EventStorageImpl.h"

#include "Support/CatchFatalErrors.h"
#include "Support/Events.h"
#include "Support/InMemoryKVStorage.h"
#include "Support/Queues.h"
#include "Support/VirtualTime.h"
#include "Support/WatchedScheduler.h"

#include <gmock/gmock.h>

#include <new>
#include <thread>

namespace kite::test {
namespace {

using Tempra::Duration;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* queueKey = "kite_pending_events";
constexpr const char* storageNotStarted = "Call start before using the EventStorage";

/// The stored form of the events with these identifiers.
std::string arrayOf(const std::vector<std::string>& ids) {
  std::string text = "[";
  for (const auto& id : ids) text.append(text.size() > 1 ? "," : "").append(textOfAnEvent(id));
  return text + "]";
}

class EventStorageImplTests : public testing::Test {
 protected:
  std::shared_ptr<VirtualTime> time = std::make_shared<VirtualTime>();
  std::shared_ptr<Tempra::Scheduler> scheduler = time;
  std::shared_ptr<InMemoryKVStorage> store = std::make_shared<InMemoryKVStorage>();
  std::shared_ptr<ManualQueue> manualQueue = std::make_shared<ManualQueue>();
  std::shared_ptr<Tempra::Queue> queue = std::make_shared<ImmediateQueue>();
  ManualSessionListener sessions = SessionListener::manual();
  bool isInBackground = false;
  int roomForAnswers = -1;  // after so many, memory runs out once
  std::shared_ptr<EventStorageImpl> storage = std::make_shared<EventStorageImpl>();

  void start() {
    storage->start({.backgroundChecker = {[this] {
                      if (roomForAnswers-- == 0) throw std::bad_alloc();
                      return isInBackground;
                    }},
                    .scheduler = scheduler,
                    .eventStorageQueue = queue,
                    .kvStorage = store,
                    .sessionListener = sessions.witness});
    manualQueue->drain();  // of the loading
  }
  void insert(const std::string& id) { storage->insert(aChange(anEvent(id))); }
  void flush() { time->advance(EventStorageImpl::syncInterval); }
  /// The same store, as the next run of the application finds it.
  void restart() {
    store->restart();
    storage = std::make_shared<EventStorageImpl>();
    start();
  }
};

TEST_F(EventStorageImplTests, stopsTheProcessBeforeStart) {
  EXPECT_FATAL(insert("A"), storageNotStarted);
  EXPECT_FATAL(storage->removeEvents({"A"}), storageNotStarted);
  EXPECT_FATAL(storage->onSessionStart(), storageNotStarted);
  EXPECT_FATAL(storage->onSessionEnd(), storageNotStarted);
}

TEST_F(EventStorageImplTests, namesItsPlaceWhenItIsUsedBeforeStart) {
  const auto raised = fatalErrorOf([this] { insert("A"); });
  ASSERT_TRUE(raised);
  EXPECT_STREQ(raised->where.file, "EventStorage");
  EXPECT_EQ(raised->where.line, 84U);
}

/// So that the thread that took an event's memory gives it back.
TEST_F(EventStorageImplTests, destroysEncodedEventsWhenTheNextOnesCome) {
  queue = manualQueue;
  start();
  auto user = std::make_shared<const User>();
  const std::weak_ptr<const User> witness = user;
  storage->insert(aChange(anEvent("A", Shared<User>(std::move(user)))));
  insert("B");
  manualQueue->drain();
  EXPECT_FALSE(witness.expired());
  insert("C");
  insert("D");
  EXPECT_TRUE(witness.expired());
}

TEST_F(EventStorageImplTests, beginsEmptyAndClean) {
  EXPECT_TRUE(storage->pendingEvents().empty());
  EXPECT_FALSE(storage->isDirty());
  start();
  EXPECT_TRUE(storage->pendingEvents().empty());
  EXPECT_FALSE(storage->isDirty());
  EXPECT_EQ(store->writes(), 0);
}

TEST_F(EventStorageImplTests, isDirtyUntilAFlushHasStoredTheEvents) {
  start();
  insert("A");
  std::vector<bool> wasDirty;
  store->onWrite = [&] { wasDirty.push_back(storage->isDirty()); };
  flush();
  EXPECT_THAT(wasDirty, ElementsAre(true));
  EXPECT_FALSE(storage->isDirty());
}

TEST_F(EventStorageImplTests, isDirtyUntilAChangeInTheBackgroundIsStored) {
  isInBackground = true;
  start();
  std::vector<bool> wasDirty;
  store->onWrite = [&] { wasDirty.push_back(storage->isDirty()); };
  insert("A");
  storage->removeEvents({"A"});
  EXPECT_THAT(wasDirty, ElementsAre(true, true));
  EXPECT_FALSE(storage->isDirty());
}

// Without memory

TEST_F(EventStorageImplTests, anInsertionThatFindsNoMemoryToWriteIsMadeOnce) {
  isInBackground = true;
  start();
  insert("A");
  roomForAnswers = 0;
  insert("B");
  EXPECT_EQ(store->text(queueKey), arrayOf({"A", "B"}));
  EXPECT_EQ(storage->pendingEvents().size(), 2U);
}

TEST_F(EventStorageImplTests, aRemovalThatFindsNoMemoryToWriteIsMadeAgain) {
  isInBackground = true;
  start();
  insert("A");
  insert("B");
  roomForAnswers = 0;
  storage->removeEvents({"A"});
  EXPECT_EQ(store->text(queueKey), arrayOf({"B"}));
}

TEST_F(EventStorageImplTests, anEditWhoseOutcomeIsLostIsFollowedByAWholeOne) {
  isInBackground = true;
  start();
  insert("A");
  store->loseNextOutcome();
  insert("B");
  insert("C");
  EXPECT_EQ(store->text(queueKey), arrayOf({"A", "B", "C"}));
}

TEST_F(EventStorageImplTests, aFlushThatFindsNoMemoryIsRepeated) {
  start();
  insert("A");
  store->loseNextOutcome();
  flush();
  flush();
  EXPECT_FALSE(storage->isDirty());
  EXPECT_EQ(store->text(queueKey), arrayOf({"A"}));
}

// In the foreground

TEST_F(EventStorageImplTests, keepsForegroundInsertionsInMemoryUntilTheNextFlush) {
  start();
  insert("A");
  insert("B");
  insert("C");
  time->advance(Duration(9.999));
  EXPECT_TRUE(storage->isDirty());
  EXPECT_FALSE(store->contains(queueKey));
  time->advance(Duration(0.001));
  EXPECT_FALSE(storage->isDirty());
  EXPECT_EQ(store->text(queueKey), arrayOf({"A", "B", "C"}));
}

TEST_F(EventStorageImplTests, flushesEveryTenSeconds) {
  EXPECT_EQ(EventStorageImpl::syncInterval, Duration(10));
  start();
  insert("A");
  time->advance(Duration(10));
  insert("B");
  time->advance(Duration(9.999));
  EXPECT_EQ(store->text(queueKey), arrayOf({"A"}));
  time->advance(Duration(0.001));
  EXPECT_EQ(store->text(queueKey), arrayOf({"A", "B"}));
}

TEST_F(EventStorageImplTests, writesOnceHoweverMuchChanged) {
  start();
  for (int i = 0; i < 20; ++i) insert("E-" + std::to_string(i));
  storage->removeEvents({"E-3"});
  flush();
  EXPECT_EQ(store->writes(), 1);
}

TEST_F(EventStorageImplTests, doesNotWriteWhileNothingChanges) {
  start();
  insert("A");
  flush();
  flush();
  flush();
  EXPECT_EQ(store->writes(), 1);
}

TEST_F(EventStorageImplTests, removesEventsByIdentifierAndKeepsTheOrder) {
  start();
  for (const char* id : {"A", "B", "C", "D"}) insert(id);
  storage->removeEvents({"A", "C"});
  EXPECT_THAT(idsOf(storage->pendingEvents()), ElementsAre("B", "D"));
  flush();
  EXPECT_EQ(store->text(queueKey), arrayOf({"B", "D"}));
}

TEST_F(EventStorageImplTests, removesWhatWasWrittenBefore) {
  start();
  for (const char* id : {"A", "B", "C"}) insert(id);
  flush();
  storage->removeEvents({"B"});
  insert("D");
  flush();
  EXPECT_EQ(store->text(queueKey), arrayOf({"A", "C", "D"}));
}

TEST_F(EventStorageImplTests, oneIdentifierRemovesBothOfTwoEvents) {
  start();
  for (const char* id : {"A", "B", "A"}) insert(id);
  storage->removeEvents({"A"});
  EXPECT_THAT(idsOf(storage->pendingEvents()), ElementsAre("B"));
}

TEST_F(EventStorageImplTests, aRemovalFromAnEmptyQueueIsAChangeAndWritesAnEmptyArray) {
  start();
  storage->removeEvents({"A"});
  EXPECT_TRUE(storage->isDirty());
  flush();
  EXPECT_EQ(store->text(queueKey), "[]");
}

TEST_F(EventStorageImplTests, aQueueThatRunsEmptyIsWrittenAsAnEmptyArray) {
  start();
  insert("A");
  flush();
  storage->removeEvents({"A"});
  flush();
  EXPECT_EQ(store->text(queueKey), "[]");
}

TEST_F(EventStorageImplTests, aRemovalOfUnknownIdentifiersIsAChangeThatKeepsTheOrder) {
  start();
  insert("A");
  insert("B");
  flush();
  storage->removeEvents({"X"});
  EXPECT_TRUE(storage->isDirty());
  EXPECT_THAT(idsOf(storage->pendingEvents()), ElementsAre("A", "B"));
}

TEST_F(EventStorageImplTests, aFlushByTheTimerSurvivesAPowerCut) {
  start();
  insert("A");
  flush();
  EXPECT_EQ(store->durability(), Larder::Durability::survivesPowerCut);
}

TEST_F(EventStorageImplTests, aSessionsEndMakesBackgroundWritesSurviveAPowerCutToo) {
  isInBackground = true;
  start();
  insert("A");
  EXPECT_EQ(store->durability(), Larder::Durability::survivesKill);
  sessions.triggerSessionEnd();
  EXPECT_EQ(store->durability(), Larder::Durability::survivesPowerCut);
}

// In the background

TEST_F(EventStorageImplTests, writesBackgroundInsertionsAtOnce) {
  isInBackground = true;
  start();
  insert("A");
  EXPECT_EQ(store->text(queueKey), arrayOf({"A"}));
  EXPECT_FALSE(storage->isDirty());
  insert("B");
  EXPECT_EQ(store->text(queueKey), arrayOf({"A", "B"}));
}

TEST_F(EventStorageImplTests, writesBackgroundRemovalsAtOnce) {
  start();
  insert("A");
  insert("B");
  isInBackground = true;
  storage->removeEvents({"A"});
  EXPECT_EQ(store->text(queueKey), arrayOf({"B"}));
  EXPECT_FALSE(storage->isDirty());
}

TEST_F(EventStorageImplTests, aBackgroundChangeIsWrittenBeforeItsTurnOnTheQueueEnds) {
  queue = manualQueue;
  isInBackground = true;
  start();
  insert("A");
  manualQueue->runOne();
  EXPECT_EQ(store->text(queueKey), arrayOf({"A"}));
  EXPECT_FALSE(storage->isDirty());
  insert("B");
  manualQueue->runOne();
  storage->removeEvents({"A"});
  manualQueue->runOne();
  EXPECT_EQ(store->text(queueKey), arrayOf({"B"}));
  EXPECT_FALSE(storage->isDirty());
  EXPECT_EQ(manualQueue->size(), 0U);
}

TEST_F(EventStorageImplTests, asksWhetherItIsInTheBackgroundWithTheChangeAlreadyMade) {
  std::vector<std::string> seen;
  storage->start({.backgroundChecker = {[&] {
                    seen = idsOf(storage->pendingEvents());
                    EXPECT_TRUE(storage->isDirty());
                    return false;
                  }},
                  .scheduler = scheduler,
                  .eventStorageQueue = queue,
                  .kvStorage = store,
                  .sessionListener = sessions.witness});
  insert("A");
  EXPECT_THAT(seen, ElementsAre("A"));
}

// Order on the queue

TEST_F(EventStorageImplTests, appliesChangesOnItsQueue) {
  queue = manualQueue;
  start();
  insert("A");
  storage->removeEvents({"A"});
  insert("B");
  EXPECT_TRUE(storage->pendingEvents().empty());
  EXPECT_FALSE(storage->isDirty());
  manualQueue->drain();
  EXPECT_THAT(idsOf(storage->pendingEvents()), ElementsAre("B"));
}

TEST_F(EventStorageImplTests, makesTheChangesThatWaitInOneTurnAndTheirOrder) {
  queue = manualQueue;
  start();
  insert("A");
  insert("B");
  storage->removeEvents({"A"});
  insert("A");
  EXPECT_EQ(manualQueue->size(), 1U);
  manualQueue->runOne();
  EXPECT_THAT(idsOf(storage->pendingEvents()), ElementsAre("B", "A"));
  insert("C");
  EXPECT_EQ(manualQueue->size(), 1U);
}

TEST_F(EventStorageImplTests, writesEachChangeOfATurnThroughInTheBackground) {
  queue = manualQueue;
  isInBackground = true;
  start();
  insert("A");
  insert("B");
  const int before = store->writes();
  manualQueue->runOne();
  EXPECT_EQ(store->writes(), before + 2);
  EXPECT_EQ(store->text(queueKey), arrayOf({"A", "B"}));
}

/// A queue that gives work up at once that finds no memory.
class ImpatientQueue final : public Tempra::Queue {
 public:
  void run(Tempra::Block block) override { catchingBadAlloc(block); }
};

TEST_F(EventStorageImplTests, aChangeThatTheQueueGaveUpIsMadeOnceAndBeforeTheNext) {
  queue = std::make_shared<ImpatientQueue>();
  isInBackground = true;
  start();
  roomForAnswers = 0;
  insert("A");
  EXPECT_EQ(store->writes(), 0);
  insert("B");
  EXPECT_EQ(store->text(queueKey), arrayOf({"A", "B"}));
  EXPECT_EQ(storage->pendingEvents().size(), 2U);
}

/// A queue without memory for one of the blocks that it gets.
class FullQueue final : public Tempra::Queue {
 public:
  static constexpr int blocksBefore = 1;  // the first one loads

  explicit FullQueue(std::shared_ptr<Tempra::Queue> queue) : _queue(std::move(queue)) {}
  void run(Tempra::Block block) override {
    if (_blocks++ == blocksBefore) throw std::bad_alloc();
    _queue->run(std::move(block));
  }

 private:
  const std::shared_ptr<Tempra::Queue> _queue;
  int _blocks = 0;
};

TEST_F(EventStorageImplTests, anInsertionThatTheQueueHasNoMemoryForIsMadeWithTheNext) {
  queue = std::make_shared<FullQueue>(queue);
  start();
  insert("A");
  EXPECT_TRUE(storage->pendingEvents().empty());
  insert("B");
  EXPECT_THAT(idsOf(storage->pendingEvents()), ElementsAre("A", "B"));
}

TEST_F(EventStorageImplTests, anInsertionThatTheQueueHasNoMemoryForIsMadeByTheNextFlush) {
  queue = std::make_shared<FullQueue>(queue);
  start();
  insert("A");
  flush();
  EXPECT_EQ(store->text(queueKey), arrayOf({"A"}));
  const int writes = store->writes();
  flush();
  EXPECT_EQ(store->writes(), writes);
}

TEST_F(EventStorageImplTests, theTimerLooksAtTheFlagAndNotAtTheQueue) {
  queue = manualQueue;
  start();
  insert("A");
  flush();
  EXPECT_EQ(manualQueue->size(), 1U);
  manualQueue->drain();
  flush();
  EXPECT_EQ(manualQueue->size(), 1U);
  EXPECT_FALSE(store->contains(queueKey));
  manualQueue->drain();
  EXPECT_EQ(store->text(queueKey), arrayOf({"A"}));
}

TEST_F(EventStorageImplTests, aSnapshotStaysAsItWas) {
  start();
  insert("A");
  const auto snapshot = storage->pendingEvents();
  insert("B");
  storage->removeEvents({"A"});
  EXPECT_THAT(idsOf(snapshot), ElementsAre("A"));
}

TEST_F(EventStorageImplTests, isReadByOtherThreadsWhileItChanges) {
  start();
  std::thread reader([this] {
    for (std::size_t last = 0; last < 1000;) {
      const auto events = storage->pendingEvents();
      EXPECT_GE(events.size(), last);
      last = events.size();
      EXPECT_EQ(all(events).size(), last);
      static_cast<void>(storage->isDirty());
    }
  });
  for (int i = 0; i < 1000; ++i) insert("E-" + std::to_string(i));
  reader.join();
}

// Sessions

TEST_F(EventStorageImplTests, aSessionEndFlushesEvenWhenNothingChanged) {
  start();
  sessions.triggerSessionEnd();
  EXPECT_EQ(store->text(queueKey), "[]");
  EXPECT_EQ(store->writes(), 1);
  sessions.triggerSessionEnd();
  EXPECT_EQ(store->writes(), 2);
}

TEST_F(EventStorageImplTests, aSessionEndFlushesOnTheQueueAndCleansTheFlag) {
  queue = manualQueue;
  start();
  insert("A");
  sessions.triggerSessionEnd();
  EXPECT_FALSE(store->contains(queueKey));
  manualQueue->drain();
  EXPECT_EQ(store->text(queueKey), arrayOf({"A"}));
  EXPECT_FALSE(storage->isDirty());
}

TEST_F(EventStorageImplTests, aSessionStartKeepsTheRunningTimer) {
  start();
  sessions.triggerSessionStart();
  EXPECT_EQ(time->armed(), 1U);
}

TEST_F(EventStorageImplTests, aSessionStartWithoutATimerStartsOne) {
  start();
  storage->cancellable()();
  storage->setCancellable(nullptr);
  ASSERT_EQ(time->armed(), 0U);
  sessions.triggerSessionStart();
  EXPECT_EQ(time->armed(), 1U);
  insert("A");
  flush();
  EXPECT_EQ(store->text(queueKey), arrayOf({"A"}));
}

TEST_F(EventStorageImplTests, aSecondStartLetsGoOfTheFirstTimerWithoutStoppingIt) {
  start();
  start();
  EXPECT_EQ(time->armed(), 2U);
}

TEST_F(EventStorageImplTests, loadsBeforeItStartsItsTimer) {
  store->put(queueKey, arrayOf({"A"}));
  std::vector<std::string> pendingAtSchedule;
  scheduler = std::make_shared<WatchedScheduler>(
      time, [&] { pendingAtSchedule = idsOf(storage->pendingEvents()); });
  start();
  EXPECT_THAT(pendingAtSchedule, ElementsAre("A"));
}

TEST_F(EventStorageImplTests, startsItsTimerThenObservesStartsThenEnds) {
  std::vector<std::string> steps;
  scheduler = std::make_shared<WatchedScheduler>(time, [&] { steps.emplace_back("timer"); });
  sessions.witness.onSessionStart = [&](auto) {
    steps.emplace_back("starts");
    return CancelToken{};
  };
  sessions.witness.onSessionEnd = [&](auto) {
    steps.emplace_back("ends");
    return CancelToken{};
  };
  start();
  EXPECT_THAT(steps, ElementsAre("timer", "starts", "ends"));
}

// The end

TEST_F(EventStorageImplTests, stopsItsTimerAndDetachesWhenItGoes) {
  start();
  std::vector<std::string> detached;
  std::optional<std::size_t> armedAtDetaching;
  auto listener = sessions.witness;
  listener.onSessionStart = [](auto) { return CancelToken{{{1}}}; };
  listener.onSessionEnd = [](auto) { return CancelToken{{{2}}}; };
  listener.detachSessionStart = [&](CancelToken token) {
    EXPECT_EQ(token, CancelToken{{{1}}});
    armedAtDetaching = time->armed();
    detached.emplace_back("start");
  };
  listener.detachSessionEnd = [&](CancelToken token) {
    EXPECT_EQ(token, CancelToken{{{2}}});
    detached.emplace_back("end");
  };
  sessions.witness = listener;
  restart();
  EXPECT_EQ(time->armed(), 1U);
  storage.reset();
  EXPECT_EQ(armedAtDetaching, std::optional<std::size_t>(0));
  EXPECT_THAT(detached, ElementsAre("start", "end"));
}

TEST_F(EventStorageImplTests, writesNothingWhenItGoes) {
  start();
  insert("A");
  storage.reset();
  EXPECT_EQ(store->writes(), 0);
}

TEST_F(EventStorageImplTests, neitherTimerNorSessionsNorQueueKeepItAlive) {
  queue = manualQueue;
  start();
  insert("A");
  sessions.triggerSessionEnd();
  const std::weak_ptr<EventStorageImpl> watch = storage;
  storage.reset();
  EXPECT_TRUE(watch.expired());
  manualQueue->drain();
  sessions.triggerSessionStart();
  sessions.triggerSessionEnd();
  EXPECT_EQ(manualQueue->size(), 0U);
  EXPECT_EQ(store->writes(), 0);
}

TEST_F(EventStorageImplTests, goesQuietlyWhenItWasNeverStarted) {
  bool wasCancelled = false;
  storage->setCancellable([&] { wasCancelled = true; });
  storage.reset();
  EXPECT_TRUE(wasCancelled);
}

// From run to run

TEST_F(EventStorageImplTests, findsWhatTheLastRunLeftBehind) {
  start();
  insert("A");
  insert("B");
  flush();
  insert("C");
  restart();
  EXPECT_THAT(idsOf(storage->pendingEvents()), ElementsAre("A", "B"));
  EXPECT_FALSE(storage->isDirty());
}

TEST_F(EventStorageImplTests, goesOnWhereTheLastRunStopped) {
  start();
  for (const char* id : {"A", "B", "C"}) insert(id);
  flush();
  restart();
  storage->removeEvents({"A"});
  insert("D");
  flush();
  EXPECT_EQ(store->text(queueKey), arrayOf({"B", "C", "D"}));
}

TEST_F(EventStorageImplTests, readsAPlainArrayAndReplacesItByTheNextWrite) {
  store->put(queueKey, "[ " + textOfAnEvent("A") + ", " + textOfAnEvent("B") + " ]");
  start();
  EXPECT_THAT(idsOf(storage->pendingEvents()), ElementsAre("A", "B"));
  storage->removeEvents({"A"});
  flush();
  EXPECT_EQ(store->text(queueKey), arrayOf({"B"}));
}

TEST_F(EventStorageImplTests, bytesThatAreNotEventsAreAnEmptyQueueAndStayUntilTheNextWrite) {
  store->put(queueKey, "[" + textOfAnEvent("A") + ",{}]");
  start();
  EXPECT_TRUE(storage->pendingEvents().empty());
  EXPECT_EQ(store->writes(), 0);
  insert("B");
  flush();
  EXPECT_EQ(store->text(queueKey), arrayOf({"B"}));
}

TEST_F(EventStorageImplTests, rowsThatAreNotEventsAreReplacedByTheNextWrite) {
  store->edit(queueKey,
              {.replacesAll = true,
               .removed = {},
               .appended = {{4, pending(anEvent("A"))}, {5, pending(anUnencodableEvent("B"))}}},
              Larder::Durability::survivesKill);
  start();
  EXPECT_TRUE(storage->pendingEvents().empty());
  insert("C");
  flush();
  EXPECT_EQ(store->text(queueKey), arrayOf({"C"}));
}

TEST_F(EventStorageImplTests, keepsARequestTimestampThatItFound) {
  std::string text = textOfAnEvent("A");
  text.insert(text.find(R"(,"app")"), R"(,"request_timestamp":7.0)");
  store->put(queueKey, "[" + text + "]");
  start();
  sessions.triggerSessionEnd();
  EXPECT_EQ(store->text(queueKey), "[" + text + "]");
}

TEST_F(EventStorageImplTests, loadsOnItsQueueUnlessSomebodyIsEarlier) {
  store->put(queueKey, arrayOf({"A"}));
  int reads = 0;
  store->onRead = [&] { ++reads; };
  queue = std::make_shared<ManualQueue>();
  start();
  EXPECT_EQ(reads, 0);
  EXPECT_THAT(idsOf(storage->pendingEvents()), ElementsAre("A"));
  const int readOnce = reads;
  EXPECT_GT(readOnce, 0);
  std::static_pointer_cast<ManualQueue>(queue)->drain();
  EXPECT_EQ(reads, readOnce);
}

TEST_F(EventStorageImplTests, aStartThatComesWhileAnotherLoadsIsLoadedToo) {
  const auto first = store;
  first->put(queueKey, arrayOf({"first"}));
  bool isStartedAnew = false;
  first->onRead = [&] {
    if (std::exchange(isStartedAnew, true)) return;
    store = std::make_shared<InMemoryKVStorage>();
    store->put(queueKey, arrayOf({"second"}));
    queue = std::make_shared<ManualQueue>();
    start();
  };
  queue = std::make_shared<ManualQueue>();
  start();
  storage->pendingEvents();
  EXPECT_THAT(idsOf(storage->pendingEvents()), ElementsAre("second"));
}

TEST_F(EventStorageImplTests, startsWithoutMemoryForTheBlockThatLoads) {
  store->put(queueKey, arrayOf({"A"}));
  class NoMemory final : public Tempra::Queue {
    void run(Tempra::Block) override { throw std::bad_alloc(); }
  };
  queue = std::make_shared<NoMemory>();
  start();
  EXPECT_THAT(idsOf(storage->pendingEvents()), ElementsAre("A"));
}

constexpr const char* aUUID = "AB000000-0000-0000-0000-000000000001";

TEST_F(EventStorageImplTests, flushedEventsLeaveMemory) {
  start();
  insert(aUUID);
  EXPECT_EQ(all(storage->pendingEvents())[0], all(storage->pendingEvents())[0]);
  flush();
  EXPECT_NE(all(storage->pendingEvents())[0], all(storage->pendingEvents())[0]);
  EXPECT_EQ(storedText(*all(storage->pendingEvents())[0]), textOfAnEvent(aUUID));
}

TEST_F(EventStorageImplTests, aListThatWasDeletedIsWrittenWholeAgain) {
  start();
  insert(aUUID);
  flush();
  store->remove(queueKey);
  insert("B");
  flush();
  EXPECT_EQ(store->text(queueKey), arrayOf({aUUID, "B"}));
}

// After another `start` the block of the queue of before may still be on its way.
TEST_F(EventStorageImplTests, aChangeOfAnEarlierStartGoesIntoTheStoreOfThatStart) {
  const auto first = store;
  bool isStartedAnew = false;
  storage->start({.backgroundChecker = {[&] {
                    if (!std::exchange(isStartedAnew, true)) {
                      store = std::make_shared<InMemoryKVStorage>();
                      store->put(queueKey, arrayOf({"other"}));
                      start();
                    }
                    return true;
                  }},
                  .scheduler = scheduler,
                  .eventStorageQueue = manualQueue,
                  .kvStorage = first,
                  .sessionListener = sessions.witness});
  queue = std::make_shared<ManualQueue>();
  insert("A");
  manualQueue->runOne();
  manualQueue->runOne();
  EXPECT_EQ(store->text(queueKey), arrayOf({"other"}));
  EXPECT_EQ(first->text(queueKey), arrayOf({"A"}));
  EXPECT_THAT(idsOf(storage->pendingEvents()), ElementsAre("other"));
}

// What cannot be written

TEST_F(EventStorageImplTests, anEventThatDoesNotEncodeLeavesTheStoreAsItWas) {
  start();
  insert("A");
  flush();
  storage->insert(aChange(anUnencodableEvent("B")));
  insert("C");
  flush();
  EXPECT_EQ(store->text(queueKey), arrayOf({"A"}));
  EXPECT_EQ(store->writes(), 1);
  EXPECT_FALSE(storage->isDirty());
  EXPECT_THAT(idsOf(storage->pendingEvents()), ElementsAre("A", "B", "C"));
}

TEST_F(EventStorageImplTests, writesAgainOnceTheEventThatDoesNotEncodeIsGone) {
  start();
  storage->insert(aChange(anUnencodableEvent("B")));
  insert("C");
  flush();
  EXPECT_FALSE(store->contains(queueKey));
  storage->removeEvents({"B"});
  flush();
  EXPECT_EQ(store->text(queueKey), arrayOf({"C"}));
}

TEST_F(EventStorageImplTests, anEventThatDoesNotEncodeCleansTheFlagInTheBackgroundToo) {
  isInBackground = true;
  start();
  storage->insert(aChange(anUnencodableEvent("B")));
  EXPECT_FALSE(storage->isDirty());
  EXPECT_EQ(store->writes(), 0);
}

TEST_F(EventStorageImplTests, aWriteThatFailedIsTriedAgainAtTheNextFlush) {
  start();
  insert("A");
  store->failWrites(true);
  flush();
  EXPECT_FALSE(storage->isDirty());
  EXPECT_EQ(store->text(queueKey), "");
  store->failWrites(false);
  flush();
  EXPECT_EQ(store->text(queueKey), arrayOf({"A"}));
  flush();
  EXPECT_EQ(store->writes(), 2);
}

TEST_F(EventStorageImplTests, aWriteAfterAFailedOneHoldsTheChangesOfBoth) {
  start();
  insert("A");
  insert("B");
  flush();
  store->failWrites(true);
  storage->removeEvents({"A"});
  insert("C");
  flush();
  EXPECT_EQ(store->text(queueKey), arrayOf({"A", "B"}));
  store->failWrites(false);
  insert("D");
  storage->removeEvents({"B"});
  flush();
  EXPECT_EQ(store->text(queueKey), arrayOf({"C", "D"}));
}

TEST_F(EventStorageImplTests, aQueueThatTheHostDeletedIsWrittenWholeAgain) {
  start();
  insert("A");
  flush();
  store->remove(queueKey);
  insert("B");
  flush();
  EXPECT_EQ(store->text(queueKey), arrayOf({"A", "B"}));
}

TEST_F(EventStorageImplTests, aFailedReplacementStaysAReplacement) {
  store->put(queueKey, "not events");
  start();
  store->failWrites(true);
  insert("A");
  flush();
  store->failWrites(false);
  insert("B");
  flush();
  EXPECT_EQ(store->text(queueKey), arrayOf({"A", "B"}));
}

}  // namespace
}  // namespace kite::test
