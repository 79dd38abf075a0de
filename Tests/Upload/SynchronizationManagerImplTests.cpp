#include "Upload/SynchronizationManagerImpl.h"

#include "Queue/EventStorage.h"
#include "Support/CatchFatalErrors.h"
#include "Support/Events.h"
#include "Support/FakeApplication.h"
#include "Support/FakeSystem.h"
#include "Support/Queues.h"
#include "Support/VirtualTime.h"
#include "Support/WatchedScheduler.h"
#include "Upload/KiteAPIManager.h"

#include <gmock/gmock.h>

#include <atomic>
#include <future>
#include <new>
#include <span>
#include <thread>
#include <utility>

namespace kite::test {
namespace {

using Tempra::Duration;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* syncNotStarted = "Call start before trying to use the synch manager";

/// Pending events that are removed on a queue, or at once.
class PendingEvents final : public EventStorage {
 public:
  std::shared_ptr<Tempra::Queue> queue = std::make_shared<ImmediateQueue>();
  std::vector<RemovalAccount> accounts;  ///< of the removals, in order

  void start(EventStorageDependencies) override {}
  EventList pendingEvents() const override { return _events.copy(); }
  void insert(std::unique_ptr<PendingChange> event) override {
    _events.with([&](EventList& events) { events.append(pending(recordOf(*event))); });
  }
  /// From now on the text of a saved event cannot be read.
  void insertUnreadable() {
    class Unreadable final : public Larder::RowFile {
      std::optional<std::string> read(std::span<const Larder::RowPlace>,
                                      const Take&) const override {
        return "rows-1.log: Input/output error";
      }
    };
    _events.with([](EventList& events) {
      events.append(Larder::SavedRow{100, UUID::noop(), {std::make_shared<Unreadable>(), 0, 1}});
    });
  }
  /// From now on the text of a saved event is damaged.
  void insertLost() {
    _events.with([](EventList& events) { events.append(EncodedEvent::lost(UUID::noop())); });
  }
  QueueStatus status() const override { return {}; }
  void persist(std::function<void(bool)> done) override {
    queue->run([done = std::move(done)] { done(true); });
  }
  using EventStorage::removeEvents;
  void removeEvents(std::set<std::string> ids, const RemovalAccount& account) override {
    queue->run([this, ids = std::move(ids), account] {
      accounts.push_back(account);
      _events.with([&](EventList& events) { events.remove(ids); });
    });
  }

 private:
  Guarded<EventList> _events;
};

/// Takes batches and answers as it is told: at once, or when a test says so.
class FakeAPIManager final : public KiteAPIManager {
 public:
  using Answer = std::function<void(const EventBatch& events, const Callback& callback)>;

  static Answer accepts() {
    return
        [](const auto& events, const auto& callback) { callback(events, true, std::nullopt, {}); };
  }
  static Answer fails(std::optional<UploadError> error) {
    return [=](const auto& events, const auto& callback) { callback(events, false, error, {}); };
  }

  void start(APIManagerDependencies) override {}
  void send(EventBatch events, Callback callback) override {
    sizes.push_back(events.size());
    batches.push_back(idsOf(events));
    answer(events, callback);
  }

  Answer answer = accepts();
  std::vector<std::size_t> sizes;
  std::vector<std::vector<std::string>> batches;
};

class SynchronizationManagerImplTests : public testing::Test {
 protected:
  FakeSystem system;
  std::shared_ptr<VirtualTime> time = std::make_shared<VirtualTime>();
  std::shared_ptr<Tempra::Scheduler> scheduler = time;
  std::shared_ptr<PendingEvents> storage = std::make_shared<PendingEvents>();
  std::shared_ptr<FakeAPIManager> api = std::make_shared<FakeAPIManager>();
  std::shared_ptr<FakeApplication> application = std::make_shared<FakeApplication>();
  std::shared_ptr<ManualQueue> manualQueue = std::make_shared<ManualQueue>();
  std::shared_ptr<Tempra::Queue> queue = std::make_shared<ImmediateQueue>();
  ManualSessionListener sessions = SessionListener::manual();
  bool syncOnSessionEnd = false;
  std::shared_ptr<SynchronizationManagerImpl> manager =
      std::make_shared<SynchronizationManagerImpl>(system.system());

  SynchronizationManagerDependencies dependencies() {
    return {.storage = storage,
            .sessionListener = sessions.witness,
            .backgroundTaskScheduler = BackgroundTaskScheduler::uiApplication(application),
            .apiManager = api,
            .scheduler = scheduler,
            .syncQueue = queue,
            .syncOnSessionEnd = syncOnSessionEnd};
  }
  void start() { manager->start(dependencies()); }
  void insert(int count) {
    for (int i = 0; i < count; ++i) storage->insert(aChange(anEvent("E-" + std::to_string(i))));
  }
  UploadResult uploadBatch() {
    std::optional<UploadResult> found;
    manager->uploadBatch([] { return true; }, [&](UploadResult result) { found = result; });
    return found.value();
  }
  static UploadReport upload(std::string endpoint, std::optional<std::string> error,
                             bool isUnreachable = false) {
    return {.time = {},
            .endpoint = std::move(endpoint),
            .error = std::move(error),
            .isUnreachable = isUnreachable};
  }
  static FakeAPIManager::Answer answersWith(UploadReport report, bool success) {
    return [=](const auto& events, const auto& callback) {
      callback(events, success, std::nullopt, report);
    };
  }
  void tick() { time->advance(SynchronizationManagerImpl::autoSyncDefaultInterval); }
  void expectTheBatchAgain() {
    api->answer = FakeAPIManager::accepts();
    tick();
    EXPECT_THAT(api->batches, ElementsAre(ElementsAre("E-0"), ElementsAre("E-0")));
    EXPECT_TRUE(storage->pendingEvents().empty());
  }
};

TEST_F(SynchronizationManagerImplTests, stopsTheProcessBeforeStart) {
  EXPECT_FATAL(manager->sync(false), syncNotStarted);
  EXPECT_FATAL(manager->setSuspended(false), syncNotStarted);
  EXPECT_FATAL(manager->startAutoSync(), syncNotStarted);
  EXPECT_FATAL(manager->onSessionEnd(), syncNotStarted);
}

TEST_F(SynchronizationManagerImplTests, isSuspendedUntilItIsStarted) {
  EXPECT_TRUE(manager->isSuspended());
  start();
  EXPECT_FALSE(manager->isSuspended());
}

// The timer

TEST_F(SynchronizationManagerImplTests, startAsksForOneSyncAtOnce) {
  insert(3);
  start();
  EXPECT_THAT(api->batches, ElementsAre(ElementsAre("E-0", "E-1", "E-2")));
  EXPECT_EQ(application->begunTasks(), 1U);
}

TEST_F(SynchronizationManagerImplTests, observesStartsThenEndsThenAsksForTheFirstSync) {
  std::vector<std::string> steps;
  auto noting = dependencies();
  noting.sessionListener.onSessionStart = [&](auto) {
    steps.emplace_back("starts");
    return CancelToken{};
  };
  noting.sessionListener.onSessionEnd = [&](auto) {
    steps.emplace_back("ends");
    return CancelToken{};
  };
  noting.backgroundTaskScheduler.beginBackgroundTask = [&](auto) {
    steps.emplace_back("sync");
    return UIBackgroundTaskInvalid;
  };
  manager->start(noting);
  EXPECT_THAT(steps, ElementsAre("starts", "ends", "sync"));
}

TEST_F(SynchronizationManagerImplTests, schedulesItsTimerAfterTheSyncsItAsksForAtOnce) {
  std::vector<std::size_t> begunAtSchedule;
  scheduler = std::make_shared<WatchedScheduler>(
      time, [&] { begunAtSchedule.push_back(application->begunTasks()); });
  start();
  sessions.triggerSessionStart();
  EXPECT_THAT(begunAtSchedule, ElementsAre(1U, 3U));
}

TEST_F(SynchronizationManagerImplTests, syncsEveryTwoSeconds) {
  EXPECT_EQ(SynchronizationManagerImpl::autoSyncDefaultInterval, Duration(2));
  start();
  insert(1);
  time->advance(Duration(1.999));
  EXPECT_THAT(api->sizes, IsEmpty());
  time->advance(Duration(0.001));
  EXPECT_THAT(api->sizes, ElementsAre(1U));
  insert(2);
  time->advance(Duration(2));
  EXPECT_THAT(api->sizes, ElementsAre(1U, 2U));
}

TEST_F(SynchronizationManagerImplTests, sendsALongQueueInBatchesOneAtEachFiring) {
  start();
  insert(1234);
  tick();
  EXPECT_THAT(api->sizes, ElementsAre(500U));
  tick();
  EXPECT_THAT(api->sizes, ElementsAre(500U, 500U));
  tick();
  tick();
  EXPECT_THAT(api->sizes, ElementsAre(500U, 500U, 234U));
  EXPECT_EQ(api->batches[0].front(), "E-0");
  EXPECT_EQ(api->batches[1].front(), "E-500");
  EXPECT_EQ(api->batches[2].back(), "E-1233");
  EXPECT_TRUE(storage->pendingEvents().empty());
}

TEST_F(SynchronizationManagerImplTests, aBatchHoldsAtMostFiveHundredEvents) {
  EXPECT_EQ(SynchronizationManagerImpl::batchLimit, 500U);
  start();
  insert(500);
  tick();
  EXPECT_THAT(api->sizes, ElementsAre(500U));
}

TEST_F(SynchronizationManagerImplTests, withAnEmptyQueueNothingIsSent) {
  start();
  tick();
  EXPECT_THAT(api->sizes, IsEmpty());
  EXPECT_FALSE(manager->isSuspended());
}

TEST_F(SynchronizationManagerImplTests, syncsOnItsQueue) {
  queue = manualQueue;
  insert(1);
  start();
  EXPECT_THAT(api->sizes, IsEmpty());
  EXPECT_EQ(manualQueue->size(), 1U);
  manualQueue->drain();
  EXPECT_THAT(api->sizes, ElementsAre(1U));
}

TEST_F(SynchronizationManagerImplTests, removesTheEventsOfTheBatchAndNoOther) {
  start();
  insert(2);
  api->answer = [this](const EventBatch& events, const auto& callback) {
    storage->insert(aChange(anEvent("late")));
    callback(events, true, std::nullopt, {});
  };
  tick();
  EXPECT_THAT(idsOf(storage->pendingEvents()), ElementsAre("late"));
}

TEST_F(SynchronizationManagerImplTests, sendsABatchAgainThatIsNotYetRemoved) {
  const auto storageQueue = std::make_shared<ManualQueue>();
  storage->queue = storageQueue;
  start();
  insert(1);
  tick();
  tick();
  EXPECT_THAT(api->batches, ElementsAre(ElementsAre("E-0"), ElementsAre("E-0")));
  storageQueue->drain();
  tick();
  EXPECT_THAT(api->sizes, ElementsAre(1U, 1U));
}

// Suspension

TEST_F(SynchronizationManagerImplTests, everyChangeOfTheSuspensionAsksForASync) {
  queue = manualQueue;
  start();
  manualQueue->drain();
  manager->setSuspended(true);
  EXPECT_EQ(manualQueue->size(), 1U);
  manager->setSuspended(true);
  EXPECT_EQ(manualQueue->size(), 1U);
  manager->setSuspended(false);
  EXPECT_EQ(manualQueue->size(), 2U);
  manager->setSuspended(false);
  EXPECT_EQ(manualQueue->size(), 2U);
}

TEST_F(SynchronizationManagerImplTests, aSessionStartWhileRunningAsksForTwoSyncs) {
  queue = manualQueue;
  start();
  manualQueue->drain();
  sessions.triggerSessionStart();
  EXPECT_EQ(manualQueue->size(), 2U);
}

TEST_F(SynchronizationManagerImplTests, aSessionStartWhileSuspendedAsksForOneSync) {
  queue = manualQueue;
  start();
  sessions.triggerSessionEnd();
  manualQueue->drain();
  sessions.triggerSessionStart();
  EXPECT_EQ(manualQueue->size(), 1U);
}

TEST_F(SynchronizationManagerImplTests, whileSuspendedASyncSendsNothing) {
  start();
  manager->setSuspended(true);
  insert(1);
  manager->sync(false);
  EXPECT_THAT(api->sizes, IsEmpty());
  manager->setSuspended(false);
  EXPECT_THAT(api->sizes, ElementsAre(1U));
}

TEST_F(SynchronizationManagerImplTests, suspendingAfterAnEmptySyncLastsUntilTheNextSessionStart) {
  start();
  manager->sync(true);
  EXPECT_TRUE(manager->isSuspended());
  EXPECT_EQ(time->armed(), 1U);
  insert(1);
  tick();
  tick();
  EXPECT_THAT(api->sizes, IsEmpty());
  sessions.triggerSessionStart();
  EXPECT_THAT(api->sizes, ElementsAre(1U));
}

TEST_F(SynchronizationManagerImplTests, suspendsAfterABatchThatWasTaken) {
  start();
  insert(600);
  manager->sync(true);
  EXPECT_TRUE(manager->isSuspended());
  tick();
  EXPECT_THAT(api->sizes, ElementsAre(500U));
}

TEST_F(SynchronizationManagerImplTests, aFailedBatchDoesNotSuspend) {
  start();
  insert(1);
  api->answer = FakeAPIManager::fails(std::nullopt);
  manager->sync(true);
  EXPECT_FALSE(manager->isSuspended());
}

TEST_F(SynchronizationManagerImplTests, aBatchThatIsTakenAfterItsSessionsEndLiftsTheSuspension) {
  start();
  insert(2);
  api->answer = [this](const EventBatch& events, const auto& callback) {
    sessions.triggerSessionEnd();
    EXPECT_TRUE(manager->isSuspended());
    storage->insert(aChange(anEvent("late")));
    api->answer = FakeAPIManager::accepts();
    callback(events, true, std::nullopt, {});
  };
  tick();
  EXPECT_FALSE(manager->isSuspended());
  EXPECT_EQ(time->armed(), 0U) << "the timer stays stopped";
  EXPECT_THAT(api->batches, ElementsAre(ElementsAre("E-0", "E-1"), ElementsAre("late")))
      << "the change of the suspension asked for another sync";
}

TEST_F(SynchronizationManagerImplTests, aBatchThatFailsAfterItsSessionsEndStaysSuspended) {
  start();
  insert(1);
  api->answer = [this](const EventBatch& events, const auto& callback) {
    sessions.triggerSessionEnd();
    api->answer = FakeAPIManager::accepts();
    callback(events, false, std::nullopt, {});
  };
  tick();
  EXPECT_TRUE(manager->isSuspended());
  EXPECT_THAT(api->sizes, ElementsAre(1U));
}

TEST_F(SynchronizationManagerImplTests, suspendsBeforeTheBackgroundTaskEnds) {
  std::vector<bool> suspendedAtEnd;
  auto watched = dependencies();
  watched.backgroundTaskScheduler.endBackgroundTask = [&](auto) {
    suspendedAtEnd.push_back(manager->isSuspended());
  };
  manager->start(watched);
  insert(1);
  suspendedAtEnd.clear();
  manager->sync(true);  // sends, and asks for one more
  EXPECT_THAT(suspendedAtEnd, ElementsAre(true, true));
  manager->setSuspended(false);
  suspendedAtEnd.clear();
  manager->sync(true);  // finds nothing, and asks for one more
  EXPECT_THAT(suspendedAtEnd, ElementsAre(true, true));
}

TEST_F(SynchronizationManagerImplTests, aSuspendedSyncDoesNotAskToSuspend) {
  start();
  manager->setSuspended(true);
  manager->sync(true);
  manager->setSuspended(false);
  EXPECT_FALSE(manager->isSuspended());
}

// Sessions

TEST_F(SynchronizationManagerImplTests, aSessionEndSendsNothingAndStopsTheTimer) {
  start();
  insert(1);
  sessions.triggerSessionEnd();
  EXPECT_TRUE(manager->isSuspended());
  EXPECT_EQ(time->armed(), 0U);
  tick();
  EXPECT_THAT(api->sizes, IsEmpty());
}

TEST_F(SynchronizationManagerImplTests, theNextSessionStartSendsWhatHasGathered) {
  start();
  sessions.triggerSessionEnd();
  insert(2);
  sessions.triggerSessionStart();
  EXPECT_THAT(api->sizes, ElementsAre(2U));
  EXPECT_EQ(time->armed(), 1U);
}

TEST_F(SynchronizationManagerImplTests, aSecondSessionEndAsksForNothing) {
  queue = manualQueue;
  start();
  sessions.triggerSessionEnd();
  manualQueue->drain();
  sessions.triggerSessionEnd();
  EXPECT_EQ(manualQueue->size(), 0U);
}

TEST_F(SynchronizationManagerImplTests, mayGoOnSyncingAfterASessionEnd) {
  syncOnSessionEnd = true;
  start();
  insert(600);
  sessions.triggerSessionEnd();
  EXPECT_THAT(api->sizes, ElementsAre(500U));
  EXPECT_FALSE(manager->isSuspended());
  tick();
  EXPECT_THAT(api->sizes, ElementsAre(500U, 100U));
}

TEST_F(SynchronizationManagerImplTests, aSessionStartReplacesTheTimer) {
  start();
  time->advance(Duration(1));
  sessions.triggerSessionStart();
  EXPECT_EQ(time->armed(), 1U);
  insert(1);
  time->advance(Duration(1.5));
  EXPECT_THAT(api->sizes, IsEmpty());
  time->advance(Duration(0.5));
  EXPECT_THAT(api->sizes, ElementsAre(1U));
}

TEST_F(SynchronizationManagerImplTests, theTimerStopsBeforeTheSuspensionChanges) {
  std::vector<std::size_t> armedAtSync;
  auto watched = dependencies();
  watched.backgroundTaskScheduler.beginBackgroundTask = [&](auto) {
    armedAtSync.push_back(time->armed());
    return UIBackgroundTaskInvalid;
  };
  manager->start(watched);
  armedAtSync.clear();
  sessions.triggerSessionStart();
  EXPECT_THAT(armedAtSync, ElementsAre(0U, 0U));
  armedAtSync.clear();
  sessions.triggerSessionEnd();
  EXPECT_THAT(armedAtSync, ElementsAre(0U));
}

TEST_F(SynchronizationManagerImplTests, aStoppedTimerIsStoppedAgainAtEverySignal) {
  int cancels = 0;
  scheduler = std::make_shared<WatchedScheduler>(
      time, [] {}, [&] { ++cancels; });
  start();
  sessions.triggerSessionEnd();
  sessions.triggerSessionEnd();
  EXPECT_EQ(cancels, 2);
  sessions.triggerSessionStart();
  EXPECT_EQ(cancels, 3);
}

// Failure

TEST_F(SynchronizationManagerImplTests, aFailedUploadKeepsTheEventsAndPrintsOneLine) {
  api->answer = FakeAPIManager::fails(ServerError{ServerError::EventValidation{"x"}});
  start();
  insert(2);
  tick();
  EXPECT_EQ(storage->pendingEvents().size(), 2U);
  EXPECT_THAT(system.lines(), ElementsAre("[KITE] ❌ ERROR: Failed event validation: x"));
}

TEST_F(SynchronizationManagerImplTests, aBatchThatCannotBeReadIsKeptAndPrintsOneLine) {
  start();
  insert(1);
  storage->insertUnreadable();
  tick();
  EXPECT_EQ(storage->pendingEvents().size(), 2U);
  EXPECT_THAT(api->batches, IsEmpty());
  EXPECT_THAT(system.lines(), ElementsAre("[KITE] ❌ ERROR: the pending events cannot be read: "
                                          "rows-1.log: Input/output error"));
  EXPECT_EQ(application->runningTasks(), 0U);
  EXPECT_FALSE(manager->isSuspended());
}

TEST_F(SynchronizationManagerImplTests, aTransportErrorIsPrintedAsItDescribesItself) {
  api->answer = FakeAPIManager::fails(TransportError{"no route"});
  start();
  insert(1);
  tick();
  EXPECT_THAT(system.lines(), ElementsAre("[KITE] ❌ ERROR: no route"));
}

TEST_F(SynchronizationManagerImplTests, aFailureWithoutAnErrorIsPrintedToo) {
  api->answer = FakeAPIManager::fails(std::nullopt);
  start();
  insert(1);
  tick();
  EXPECT_THAT(system.lines(), ElementsAre("[KITE] ❌ ERROR: request failed with no error"));
}

TEST_F(SynchronizationManagerImplTests, aFailedBatchIsSentAgainAtTheNextFiring) {
  api->answer = FakeAPIManager::fails(std::nullopt);
  start();
  insert(1);
  tick();
  expectTheBatchAgain();
}

TEST_F(SynchronizationManagerImplTests, nothingIsPrintedForABatchThatWasTaken) {
  start();
  insert(1);
  tick();
  EXPECT_THAT(system.lines(), IsEmpty());
}

// Background tasks

TEST_F(SynchronizationManagerImplTests, everySyncEndsItsBackgroundTaskOnce) {
  start();  // finds nothing
  insert(1);
  api->answer = FakeAPIManager::fails(std::nullopt);
  tick();  // fails
  api->answer = FakeAPIManager::accepts();
  tick();                       // sends
  manager->setSuspended(true);  // skips
  EXPECT_EQ(application->begunTasks(), 4U);
  EXPECT_THAT(application->endedTasks(), ElementsAre(1U, 2U, 3U, 4U));
}

TEST_F(SynchronizationManagerImplTests, theBackgroundTaskBeginsBeforeTheQueueIsReached) {
  queue = manualQueue;
  start();
  EXPECT_EQ(application->runningTasks(), 1U);
  manualQueue->drain();
  EXPECT_EQ(application->runningTasks(), 0U);
}

TEST_F(SynchronizationManagerImplTests, aTaskThatExpiresIsEndedThenAndNotAgain) {
  start();
  insert(1);
  api->answer = [this](const EventBatch& events, const auto& callback) {
    application->expireBackgroundTasks();
    EXPECT_EQ(application->runningTasks(), 0U);
    callback(events, true, std::nullopt, {});
  };
  tick();
  EXPECT_THAT(application->endedTasks(), ElementsAre(1U, 2U));
}

TEST_F(SynchronizationManagerImplTests, aTaskThatExpiresWhileItBeginsIsEndedBySyncsEnd) {
  auto expiring = dependencies();
  expiring.backgroundTaskScheduler.beginBackgroundTask = [this](auto handler) {
    handler.value()();
    return application->beginBackgroundTask(std::nullopt);
  };
  manager->start(expiring);
  EXPECT_THAT(application->endedTasks(), ElementsAre(1U));
}

TEST_F(SynchronizationManagerImplTests, aTaskThatCannotBeginIsEndedAllTheSame) {
  auto refused = dependencies();
  refused.backgroundTaskScheduler.beginBackgroundTask = [](auto) {
    return UIBackgroundTaskInvalid;
  };
  manager->start(refused);
  EXPECT_THAT(application->endedTasks(), ElementsAre(UIBackgroundTaskInvalid));
}

TEST_F(SynchronizationManagerImplTests, theTaskOfASyncThatItsQueueDropsIsEnded) {
  queue = std::exchange(manualQueue, nullptr);
  start();
  EXPECT_EQ(application->runningTasks(), 1U);
  queue.reset();
  manager.reset();
  EXPECT_THAT(application->endedTasks(), ElementsAre(1U));
}

TEST_F(SynchronizationManagerImplTests, theTaskEndsAfterTheRemovalOfTheBatch) {
  auto watched = dependencies();
  std::vector<std::size_t> pendingAtEnd;
  watched.backgroundTaskScheduler.endBackgroundTask = [&](auto) {
    pendingAtEnd.push_back(storage->pendingEvents().size());
  };
  insert(1);
  manager->start(watched);
  EXPECT_THAT(pendingAtEnd, ElementsAre(0U));
}

// One batch at a time

/// Keeps what it is sent until a test answers, and lets the test wait for it.
class HeldUploads {
 public:
  FakeAPIManager::Answer hold() {
    return [this](const EventBatch& events, const KiteAPIManager::Callback& callback) {
      _arrived.set_value([events, callback] { callback(events, true, std::nullopt, {}); });
    };
  }
  std::function<void()> await() { return _arrived.get_future().get(); }

 private:
  std::promise<std::function<void()>> _arrived;
};

TEST_F(SynchronizationManagerImplTests, blocksItsQueueUntilTheUploadHasAnswered) {
  queue = manualQueue;
  start();
  manualQueue->drain();
  insert(1);
  HeldUploads uploads;
  api->answer = uploads.hold();
  tick();
  std::promise<void> queueIsFree;
  manualQueue->run([&] { queueIsFree.set_value(); });
  std::thread worker([this] { manualQueue->drain(); });
  const auto answer = uploads.await();
  EXPECT_EQ(manualQueue->size(), 1U);
  EXPECT_EQ(application->runningTasks(), 1U);
  EXPECT_FALSE(storage->pendingEvents().empty());
  answer();
  queueIsFree.get_future().wait();
  worker.join();
  EXPECT_EQ(application->runningTasks(), 0U);
  EXPECT_TRUE(storage->pendingEvents().empty());
}

TEST_F(SynchronizationManagerImplTests, anAnswerAfterTheManagerIsGoneStillRemovesTheBatch) {
  queue = manualQueue;
  start();
  manualQueue->drain();
  insert(1);
  HeldUploads uploads;
  api->answer = uploads.hold();
  tick();
  std::thread worker([this] { manualQueue->drain(); });
  const auto answer = uploads.await();
  const std::weak_ptr<SynchronizationManagerImpl> watch = manager;
  manager.reset();
  answer();
  worker.join();
  EXPECT_TRUE(watch.expired());
  EXPECT_TRUE(storage->pendingEvents().empty());
  EXPECT_EQ(application->runningTasks(), 0U);
}

TEST_F(SynchronizationManagerImplTests, aSyncThatTheManagerDoesNotLiveToSeeBlocksTheQueueForGood) {
  queue = manualQueue;
  insert(1);
  start();
  manager.reset();
  // The worker is left behind, blocked; what it uses outlives the test.
  const auto wentOn = std::make_shared<std::atomic<bool>>(false);
  manualQueue->run([wentOn] { *wentOn = true; });
  std::thread([blocked = manualQueue] { blocked->drain(); }).detach();
  while (manualQueue->size() > 1) std::this_thread::yield();
  for (int i = 0; i < 100; ++i) std::this_thread::yield();
  EXPECT_FALSE(*wentOn);
  EXPECT_THAT(api->sizes, IsEmpty());
  EXPECT_EQ(application->runningTasks(), 1U);
}

TEST_F(SynchronizationManagerImplTests, aSyncWhoseAnswerIsLostEndsAndTheNextSendsTheBatchAgain) {
  start();
  insert(1);
  api->answer = [](const auto&, const auto&) {};
  tick();
  EXPECT_EQ(application->runningTasks(), 0U);
  expectTheBatchAgain();
}

TEST_F(SynchronizationManagerImplTests, aSyncThatFindsNoMemoryIsMadeAgain) {
  start();
  insert(1);
  api->answer = [this](const auto&, const auto&) {
    api->answer = FakeAPIManager::accepts();
    throw std::bad_alloc();
  };
  tick();
  EXPECT_EQ(api->batches.size(), 2U);
  EXPECT_TRUE(storage->pendingEvents().empty());
  EXPECT_EQ(application->runningTasks(), 0U);
}

// One batch for a drain

TEST_F(SynchronizationManagerImplTests,
       aBatchThatIsAskedForIsSentWhileSuspendedWhichItLeavesAsItWas) {
  start();
  for (const bool isSuspended : {true, false}) {
    manager->setSuspended(isSuspended);
    insert(1);
    EXPECT_EQ(uploadBatch(), UploadResult::finished);
    EXPECT_EQ(manager->isSuspended(), isSuspended);
    EXPECT_TRUE(storage->pendingEvents().empty());
  }
  EXPECT_THAT(api->sizes, ElementsAre(1U, 1U));
}

TEST_F(SynchronizationManagerImplTests, aBatchThatIsAskedForHoldsTheOldestEvents) {
  start();
  insert(600);
  EXPECT_EQ(uploadBatch(), UploadResult::finished);
  EXPECT_EQ(uploadBatch(), UploadResult::finished);
  EXPECT_EQ(uploadBatch(), UploadResult::nothingPending);
  EXPECT_THAT(api->sizes, ElementsAre(500U, 100U));
}

TEST_F(SynchronizationManagerImplTests, tellsWhatBecameOfABatchThatWasAskedFor) {
  start();
  EXPECT_EQ(uploadBatch(), UploadResult::nothingPending);
  insert(1);
  api->answer = answersWith(upload("", "no route", /*isUnreachable=*/true), false);
  EXPECT_EQ(uploadBatch(), UploadResult::unreachable);
  api->answer = answersWith(upload("", "refused"), false);
  EXPECT_EQ(uploadBatch(), UploadResult::refused);
  api->answer = answersWith(upload("", "none could be put into a request"), true);
  EXPECT_EQ(uploadBatch(), UploadResult::finished);
  storage->insertUnreadable();
  EXPECT_EQ(uploadBatch(), UploadResult::notReadable);
}

TEST_F(SynchronizationManagerImplTests, aBackgroundTaskIsAroundABatchThatIsAskedFor) {
  start();
  insert(1);
  api->answer = [this](const EventBatch& events, const auto& callback) {
    EXPECT_EQ(application->runningTasks(), 1U);
    callback(events, true, std::nullopt, {});
  };
  manager->uploadBatch([] { return true; },
                       [this](UploadResult) { EXPECT_EQ(application->runningTasks(), 0U); });
  EXPECT_THAT(application->endedTasks(), ElementsAre(1U, 2U));
}

TEST_F(SynchronizationManagerImplTests, aBatchThatIsAskedForWaitsForTheRemovalOfTheOneBefore) {
  const auto storageQueue = std::make_shared<ManualQueue>();
  storage->queue = storageQueue;
  start();
  insert(1);
  tick();
  std::atomic<bool> isDone = false;
  std::thread caller([&] {
    EXPECT_EQ(uploadBatch(), UploadResult::nothingPending);
    isDone = true;
  });
  while (storageQueue->size() < 2 && !isDone) std::this_thread::yield();
  storageQueue->drain();
  caller.join();
  EXPECT_THAT(api->batches, ElementsAre(ElementsAre("E-0")));
}

TEST_F(SynchronizationManagerImplTests, waitsForNoRemovalThatTheStorageWillNeverMake) {
  /// As a queue does that ends before its blocks run.
  class Dropping final : public Tempra::Queue {
    void run(Tempra::Block) override {}
  };
  storage->queue = std::make_shared<Dropping>();
  start();
  insert(1);
  EXPECT_EQ(uploadBatch(), UploadResult::finished);
}

// Accounts

TEST_F(SynchronizationManagerImplTests, theAccountOfABatchTellsWhatCouldNotBeSentFromWhatWas) {
  start();
  insert(1);
  storage->insert(aChange(anUnencodableEvent("bad-1")));
  storage->insert(aChange(anUnencodableEvent("bad-2")));
  storage->insertLost();
  tick();
  ASSERT_EQ(storage->accounts.size(), 1U);
  EXPECT_THAT(storage->accounts[0].notEncodable, ElementsAre("bad-1", "bad-2"));
  EXPECT_THAT(storage->accounts[0].lostOnDisk, ElementsAre(UUID::noop().text()));
  EXPECT_TRUE(storage->accounts[0].wasSent);
}

TEST_F(SynchronizationManagerImplTests, theAccountOfABatchThatNobodyTookSaysSo) {
  start();
  insert(1);
  api->answer = answersWith(upload("", "none could be put into a request"), true);
  tick();
  ASSERT_EQ(storage->accounts.size(), 1U);
  EXPECT_FALSE(storage->accounts[0].wasSent);
}

TEST_F(SynchronizationManagerImplTests, everyUploadIsToldAfterItsRemovalWasAskedFor) {
  start();
  std::vector<std::pair<std::string, std::size_t>> told;
  manager->uploads().observe([&](const UploadReport& upload) {
    told.emplace_back(upload.endpoint, storage->pendingEvents().size());
  });
  EXPECT_EQ(manager->uploads().last(), std::nullopt);
  insert(1);
  api->answer = answersWith(upload("first", "refused"), false);
  tick();
  api->answer = answersWith(upload("second", std::nullopt), true);
  uploadBatch();
  EXPECT_THAT(told, ElementsAre(std::pair("first", 1U), std::pair("second", 0U)));
  EXPECT_EQ(manager->uploads().last(), upload("second", std::nullopt));
}

// The end

TEST_F(SynchronizationManagerImplTests, neitherTimerNorSessionsKeepItAlive) {
  start();
  const std::weak_ptr<SynchronizationManagerImpl> watch = manager;
  manager.reset();
  EXPECT_TRUE(watch.expired());
  insert(1);
  tick();
  sessions.triggerSessionStart();
  sessions.triggerSessionEnd();
  EXPECT_THAT(api->sizes, IsEmpty());
}

TEST_F(SynchronizationManagerImplTests, detachesFromTheSessionsAndLeavesTheTimerWhenItGoes) {
  std::vector<std::string> detached;
  sessions.witness.onSessionStart = [](auto) { return CancelToken{{{1}}}; };
  sessions.witness.onSessionEnd = [](auto) { return CancelToken{{{2}}}; };
  sessions.witness.detachSessionStart = [&](CancelToken token) {
    EXPECT_EQ(token, CancelToken{{{1}}});
    detached.emplace_back("start");
  };
  sessions.witness.detachSessionEnd = [&](CancelToken token) {
    EXPECT_EQ(token, CancelToken{{{2}}});
    detached.emplace_back("end");
  };
  start();
  manager.reset();
  EXPECT_THAT(detached, ElementsAre("start", "end"));
  EXPECT_EQ(time->armed(), 1U);
}

TEST_F(SynchronizationManagerImplTests, goesQuietlyWhenItWasNeverStarted) {
  manager.reset();
  EXPECT_THAT(system.lines(), IsEmpty());
}

}  // namespace
}  // namespace kite::test
