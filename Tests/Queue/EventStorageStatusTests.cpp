#include "Queue/EventStorageImpl.h"

#include "Support/Events.h"
#include "Support/InMemoryKVStorage.h"
#include "Support/Queues.h"
#include "Support/VirtualTime.h"

#include <gmock/gmock.h>

namespace kite::test {
namespace {

constexpr const char* queueKey = "kite_pending_events";

/// What the storage says of itself, while changes are made when a test says so.
class EventStorageStatusTests : public testing::Test {
 protected:
  std::shared_ptr<VirtualTime> time = std::make_shared<VirtualTime>();
  std::shared_ptr<InMemoryKVStorage> store = std::make_shared<InMemoryKVStorage>();
  std::shared_ptr<ManualQueue> queue = std::make_shared<ManualQueue>();
  std::shared_ptr<EventLedger> ledger = std::make_shared<EventLedger>();
  ManualSessionListener sessions = SessionListener::manual();
  bool savesLedger = true;
  bool isInBackground = false;
  std::shared_ptr<EventStorageImpl> storage = std::make_shared<EventStorageImpl>();

  void start() {
    storage->start({.backgroundChecker = {[this] { return isInBackground; }},
                    .scheduler = time,
                    .eventStorageQueue = queue,
                    .kvStorage = store,
                    .sessionListener = sessions.witness,
                    .ledger = ledger,
                    .savesLedger = savesLedger});
    queue->drain();
  }
  void restart() {
    store->restart();
    ledger = std::make_shared<EventLedger>();
    storage = std::make_shared<EventStorageImpl>();
    start();
  }
  void insert(const std::string& id) { storage->insert(aChange(anEvent(id))); }
  void insertAll(std::vector<std::string> ids) {
    for (const auto& id : ids) insert(id);
    queue->drain();
  }
  void persist() {
    storage->persist([](bool) {});
    queue->drain();
  }
  std::string savedNote() const {
    const auto list = store->readList(queueKey);
    return list ? list->note : "";
  }
  void expect(const Ledger& counts, std::uint64_t onDisk) const {
    const auto status = storage->status();
    EXPECT_EQ(status.ledger.tracked, counts.tracked);
    EXPECT_EQ(status.ledger.pending, counts.pending);
    EXPECT_EQ(status.ledger.delivered, counts.delivered);
    EXPECT_EQ(status.ledger.dropped, counts.dropped);
    EXPECT_EQ(status.onDisk, onDisk);
  }
};

TEST_F(EventStorageStatusTests, isEmptyBeforeTheStart) { expect({}, 0); }

TEST_F(EventStorageStatusTests, countsEventsFromTheMomentTheyAreHandedOver) {
  start();
  insert("A");
  insert("B");
  expect({.tracked = 2, .pending = 2}, 0);
  queue->drain();
  expect({.tracked = 2, .pending = 2}, 0);
  persist();
  expect({.tracked = 2, .pending = 2}, 2);
  insert("C");
  expect({.tracked = 3, .pending = 3}, 2);
}

TEST_F(EventStorageStatusTests, countsWhatIsRemovedWhenItIs) {
  start();
  insertAll({"A", "B", "C", "D"});
  persist();
  insert("E");
  storage->removeEvents({"A", "B", "C"}, {.notEncodable = {"B"}});
  expect({.tracked = 5, .pending = 5}, 4);
  queue->drain();
  const DroppedEvents dropped{.notEncodable = 1};
  expect({.tracked = 5, .pending = 2, .delivered = 2, .dropped = dropped}, 1);
  persist();
  expect({.tracked = 5, .pending = 2, .delivered = 2, .dropped = dropped}, 2);
}

TEST_F(EventStorageStatusTests, aRemovalOfWhatIsGoneCountsNothing) {
  start();
  insertAll({"A"});
  storage->removeEvents({"A"});
  storage->removeEvents({"A"});
  queue->drain();
  expect({.tracked = 1, .delivered = 1}, 0);
}

/// A batch may be sent again, with what has come since, before it is removed.
TEST_F(EventStorageStatusTests, whatIsRemovedTwiceCountsOnceAsWhatItIs) {
  start();
  insertAll({"lost", "bad", "A", "B"});
  storage->removeEvents({"lost", "bad", "A"}, {.notEncodable = {"bad"}, .lostOnDisk = {"lost"}});
  storage->removeEvents({"lost", "bad", "A", "B"},
                        {.notEncodable = {"bad"}, .lostOnDisk = {"lost"}});
  queue->drain();
  expect({.tracked = 4, .delivered = 2, .dropped = {.notEncodable = 1, .lostOnDisk = 1}}, 0);
}

TEST_F(EventStorageStatusTests, nothingOfABatchThatWasNotSentIsDelivered) {
  start();
  insertAll({"lost", "bad", "A"});
  storage->removeEvents({"lost", "bad", "A"},
                        {.notEncodable = {"bad"}, .lostOnDisk = {"lost"}, .wasSent = false});
  queue->drain();
  expect({.tracked = 3, .dropped = {.notEncodable = 1, .notUploadable = 1, .lostOnDisk = 1}}, 0);
}

TEST_F(EventStorageStatusTests, aFailedWriteLeavesItsEventsInMemory) {
  start();
  insertAll({"A"});
  persist();
  store->failWrites(true);
  insertAll({"B", "C"});
  persist();
  expect({.tracked = 3, .pending = 3}, 1);
  store->failWrites(false);
  persist();
  expect({.tracked = 3, .pending = 3}, 3);
}

TEST_F(EventStorageStatusTests, aQueueThatTheHostDeletedIsInMemoryUntilItIsWrittenAgain) {
  start();
  insertAll({"A"});
  persist();
  store->remove(queueKey);
  store->failWrites(true);
  insertAll({"B"});
  persist();
  expect({.tracked = 2, .pending = 2}, 0);
  store->failWrites(false);
  persist();
  expect({.tracked = 2, .pending = 2}, 2);
}

TEST_F(EventStorageStatusTests, withAnEventThatDoesNotEncodeAllThatCameAfterIsInMemory) {
  start();
  insertAll({"A"});
  persist();
  storage->insert(aChange(anUnencodableEvent("bad")));
  insertAll({"B"});
  persist();
  expect({.tracked = 3, .pending = 3}, 1);
  storage->removeEvents({"bad"}, {.notEncodable = {"bad"}});
  persist();
  expect({.tracked = 3, .pending = 2, .dropped = {.notEncodable = 1}}, 2);
}

TEST_F(EventStorageStatusTests, whatAnEarlierRunLeftIsTrackedAndOnDisk) {
  start();
  insertAll({"A", "B"});
  persist();
  restart();
  expect({.tracked = 2, .pending = 2}, 2);
}

TEST_F(EventStorageStatusTests, beforeTheEventsOfTheLastRunAreLoadedTheyAreNotCounted) {
  start();
  insertAll({"A"});
  persist();
  const auto first = storage;
  storage = std::make_shared<EventStorageImpl>();
  ledger = std::make_shared<EventLedger>();
  storage->start({.backgroundChecker = {[] { return false; }},
                  .scheduler = time,
                  .eventStorageQueue = queue,
                  .kvStorage = store,
                  .sessionListener = sessions.witness,
                  .ledger = ledger});
  insert("B");
  expect({.tracked = 1, .pending = 1}, 0);
  queue->drain();
  expect({.tracked = 2, .pending = 2}, 1);
}

// Persisting

TEST_F(EventStorageStatusTests, persistMakesEarlierChangesAndWritesBeforeItIsDone) {
  start();
  insert("A");
  insert("B");
  storage->removeEvents({"A"});
  std::string storedWhenDone;
  storage->persist([&](bool) { storedWhenDone = store->text(queueKey); });
  EXPECT_EQ(storedWhenDone, "");
  queue->drain();
  EXPECT_EQ(storedWhenDone, std::string("[").append(textOfAnEvent("B")).append("]"));
  EXPECT_EQ(store->durability(), Larder::Durability::survivesPowerCut);
}

TEST_F(EventStorageStatusTests, persistIsDoneWhenTheDiskTakesNothing) {
  start();
  store->failWrites(true);
  insert("A");
  int times = 0;
  storage->persist([&](bool) { ++times; });
  queue->drain();
  EXPECT_EQ(times, 1);
}

TEST_F(EventStorageStatusTests, persistIsDoneOnTheQueue) {
  start();
  insertAll({"A"});
  int times = 0;
  storage->persist([&](bool) { ++times; });
  EXPECT_EQ(times, 0);
  queue->drain();
  EXPECT_EQ(times, 1);
}

// The ledger beside the events

TEST_F(EventStorageStatusTests, theLedgerGoesOnInTheNextRun) {
  start();
  insertAll({"A", "B", "C"});
  ledger->drop(&DroppedEvents::noConsent);
  storage->removeEvents({"A"});
  persist();
  restart();
  expect({.tracked = 4, .pending = 2, .delivered = 1, .dropped = {.noConsent = 1}}, 2);
  insertAll({"D"});
  expect({.tracked = 5, .pending = 3, .delivered = 1, .dropped = {.noConsent = 1}}, 2);
}

TEST_F(EventStorageStatusTests, aKillTakesBackOfTheLedgerWhatItTakesOfTheQueue) {
  start();
  insertAll({"A", "B"});
  persist();
  insertAll({"C"});
  storage->removeEvents({"A"});
  ledger->drop(&DroppedEvents::noConsent);
  queue->drain();
  restart();
  expect({.tracked = 2, .pending = 2}, 2);
}

TEST_F(EventStorageStatusTests, aNoteIsSavedWithAnEditThatChangesSomethingAndWhenItIsPersisted) {
  start();
  insertAll({"A"});
  persist();
  const auto note = savedNote();
  EXPECT_EQ(note, ledger->note());
  ledger->drop(&DroppedEvents::noConsent);
  storage->onSessionEnd();
  EXPECT_EQ(savedNote(), note);
  persist();
  EXPECT_EQ(savedNote(), ledger->note());
  insertAll({"B"});
  persist();
  EXPECT_EQ(savedNote(), ledger->note());
  EXPECT_NE(savedNote(), note);
}

TEST_F(EventStorageStatusTests, aRemovalAloneSavesTheNoteToo) {
  start();
  insertAll({"A"});
  persist();
  storage->removeEvents({"A"});
  persist();
  EXPECT_EQ(savedNote(), ledger->note());
}

TEST_F(EventStorageStatusTests, inTheBackgroundTheNoteIsSavedWithEachChange) {
  isInBackground = true;
  start();
  insertAll({"A"});
  EXPECT_EQ(savedNote(), ledger->note());
  insertAll({"B"});
  EXPECT_EQ(savedNote(), ledger->note());
}

TEST_F(EventStorageStatusTests, savesNoLedgerUnlessItIsTo) {
  savesLedger = false;
  start();
  insertAll({"A"});
  persist();
  EXPECT_EQ(savedNote(), "");
}

}  // namespace
}  // namespace kite::test
