#include "Queue/EventStorageImpl.h"
#include "Support/Events.h"
#include "Support/InMemoryKVStorage.h"
#include "Support/Queues.h"
#include "Support/VirtualTime.h"

#include <gmock/gmock.h>

namespace kite::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* savedKey = "kite_pending_events";

/// Insertions that may wait, on a queue that lets them.
class WaitingChangesTests : public testing::Test {
 protected:
  WaitingChangesTests() {
    storage->start({.backgroundChecker = {[this] { return isInBackground; }},
                    .scheduler = time,
                    .eventStorageQueue = queue,
                    .kvStorage = store,
                    .sessionListener = sessions.witness});
    queue->runWaiting();
    queue->wakeUps = 0;
  }
  void insert(const std::string& id, bool mayWait = true) {
    auto change = aChange(anEvent(id));
    change->mayWait = mayWait;
    storage->insert(std::move(change));
  }
  std::size_t storedEvents() const {
    const auto list = store->readList(savedKey);
    return list ? list->rows.size() : 0;
  }

  std::shared_ptr<VirtualTime> time = std::make_shared<VirtualTime>();
  std::shared_ptr<InMemoryKVStorage> store = std::make_shared<InMemoryKVStorage>();
  std::shared_ptr<PatientQueue> queue = std::make_shared<PatientQueue>();
  ManualSessionListener sessions = SessionListener::manual();
  bool isInBackground = false;
  std::shared_ptr<EventStorageImpl> storage = std::make_shared<EventStorageImpl>();
};

TEST_F(WaitingChangesTests, wakeNobodyAndAreMadeInOrderByWhoeverReadsTheEvents) {
  insert("A");
  insert("B");
  EXPECT_EQ(queue->wakeUps, 0);
  EXPECT_FALSE(storage->isDirty());
  EXPECT_THAT(idsOf(storage->pendingEvents()), ElementsAre("A", "B"));
  EXPECT_TRUE(storage->isDirty());
  insert("C");
  EXPECT_THAT(idsOf(storage->pendingEvents()), ElementsAre("A", "B", "C"));
  EXPECT_EQ(queue->wakeUps, 0);
}

TEST_F(WaitingChangesTests, areMadeBeforeTheNextThatMayNotWait) {
  insert("A");
  insert("B", /*mayWait=*/false);
  insert("C", /*mayWait=*/false);
  EXPECT_EQ(queue->wakeUps, 1);
  EXPECT_THAT(idsOf(storage->pendingEvents()), IsEmpty());
  queue->runWaiting();
  EXPECT_THAT(idsOf(storage->pendingEvents()), ElementsAre("A", "B", "C"));
}

TEST_F(WaitingChangesTests, areMadeBeforeTheRemovalOfEvents) {
  insert("A");
  storage->removeEvents({"A"});
  EXPECT_EQ(queue->wakeUps, 1);
  queue->runWaiting();
  EXPECT_THAT(idsOf(storage->pendingEvents()), IsEmpty());
}

TEST_F(WaitingChangesTests, wakeSomebodyWhenThereAreMany) {
  const auto most = EventStorageImpl::mostWaiting;
  for (std::size_t i = 1; i < most; ++i) insert(std::to_string(i));
  EXPECT_EQ(queue->wakeUps, 0);
  for (std::size_t i = 0; i < most; ++i) insert("more");
  EXPECT_EQ(queue->wakeUps, 1);
  queue->runWaiting();
  EXPECT_THAT(idsOf(storage->pendingEvents()), SizeIs(2 * most - 1));
}

TEST_F(WaitingChangesTests, areSavedByTheNextFlush) {
  insert("A");
  time->advance(EventStorageImpl::syncInterval);
  EXPECT_EQ(queue->wakeUps, 1);
  queue->runWaiting();
  EXPECT_EQ(storedEvents(), 1U);
  time->advance(EventStorageImpl::syncInterval);
  EXPECT_EQ(queue->wakeUps, 1);
}

TEST_F(WaitingChangesTests, areSavedByTheEndOfASession) {
  insert("A");
  storage->onSessionEnd();
  EXPECT_EQ(queue->wakeUps, 1);
  queue->runWaiting();
  EXPECT_EQ(storedEvents(), 1U);
}

TEST_F(WaitingChangesTests, areSavedBeforeItIsSaidThatAllIs) {
  insert("A");
  bool isSaved = false;
  storage->persist([&](bool saved) { isSaved = saved; });
  EXPECT_EQ(queue->wakeUps, 1);
  queue->runWaiting();
  EXPECT_TRUE(isSaved);
  EXPECT_EQ(storedEvents(), 1U);
}

TEST_F(WaitingChangesTests, areSavedAtOnceWhenTheyAreMadeInTheBackground) {
  insert("A");
  isInBackground = true;
  EXPECT_THAT(idsOf(storage->pendingEvents()), ElementsAre("A"));
  EXPECT_EQ(storedEvents(), 1U);
  EXPECT_FALSE(storage->isDirty());
}

TEST_F(WaitingChangesTests, areCountedAsPending) {
  insert("A");
  EXPECT_EQ(storage->status().ledger.tracked, 1U);
  EXPECT_EQ(storage->status().ledger.pending, 1U);
}

TEST_F(WaitingChangesTests, outliveTheQueueThatTheyWaitedOn) {
  insert("A");
  const auto another = std::make_shared<PatientQueue>();
  storage->start({.backgroundChecker = {[] { return false; }},
                  .scheduler = time,
                  .eventStorageQueue = another,
                  .kvStorage = store,
                  .sessionListener = sessions.witness});
  another->runWaiting();
  EXPECT_THAT(idsOf(storage->pendingEvents()), ElementsAre("A"));
}

}  // namespace
}  // namespace kite::test
