#include "Queue/EventStorageImpl.h"

#include "Support/Events.h"
#include "Support/InMemoryKVStorage.h"
#include "Support/Queues.h"
#include "Support/StorageModel.h"
#include "Support/VirtualTime.h"

#include <gmock/gmock.h>

#include <random>

namespace kite::test {
namespace {

/// Whatever happens to a storage happens to its model too.
class EventStorageProperties : public testing::Test {
 protected:
  std::shared_ptr<VirtualTime> time = std::make_shared<VirtualTime>();
  std::shared_ptr<InMemoryKVStorage> store = std::make_shared<InMemoryKVStorage>();
  std::shared_ptr<ManualQueue> queue;
  ManualSessionListener sessions = SessionListener::manual();
  std::shared_ptr<EventStorageImpl> storage;
  StorageModel model;
  std::mt19937_64 random{43};

  void SetUp() override { start(); }
  void start() {
    queue = std::make_shared<ManualQueue>();
    storage = std::make_shared<EventStorageImpl>();
    storage->start({.backgroundChecker = {[this] { return model.isInBackground; }},
                    .scheduler = time,
                    .eventStorageQueue = queue,
                    .kvStorage = store,
                    .sessionListener = sessions.witness});
  }

  /// One of a few, so that some events share one.
  std::string someId() { return "E-" + std::to_string(random() % 20); }

  void insert() {
    const auto id = someId();
    storage->insert(anEvent(id));
    model.insert({id, textOfAnEvent(id)});
  }
  void insertWhatDoesNotEncode() {
    if (random() % 4 != 0) return;
    const auto id = someId();
    storage->insert(anUnencodableEvent(id));
    model.insert({id, ""});
  }
  void remove() {
    std::set<std::string> ids;
    for (auto count = random() % 12; count > 0; --count) ids.insert(someId());
    storage->removeEvents(ids);
    model.remove(ids);
  }
  void runOne() {
    queue->runOne();
    model.runOne();
  }
  void endSession() {
    sessions.triggerSessionEnd();
    model.endSession();
  }
  void passTenSeconds() {
    time->advance(std::chrono::seconds(10));
    model.tick();
  }
  void changeSides() { model.isInBackground = !model.isInBackground; }
  void fillOrFreeTheDisk() {
    model.isDiskFull = !model.isDiskFull;
    store->failWrites(model.isDiskFull);
  }
  void dieAndStart() {
    if (random() % 4 != 0) return;
    storage.reset();
    store->restart();
    start();
    model.restart();
  }

  void step() {
    using Self = EventStorageProperties;
    static constexpr void (Self::*steps[])() = {
        &Self::insert,           &Self::insert,         &Self::insertWhatDoesNotEncode,
        &Self::remove,           &Self::runOne,         &Self::runOne,
        &Self::runOne,           &Self::runOne,         &Self::endSession,
        &Self::changeSides,      &Self::passTenSeconds, &Self::dieAndStart,
        &Self::fillOrFreeTheDisk};
    (this->*steps[random() % std::size(steps)])();
  }
  void expectWhatTheModelSays() const {
    std::vector<std::string> ids;
    for (const auto& entry : model.pending) ids.push_back(entry.id);
    EXPECT_EQ(idsOf(storage->pendingEvents()), ids);
    EXPECT_EQ(storage->isDirty(), model.isDirty);
    EXPECT_EQ(store->text(EventStorageImpl::pendingEventsKey), model.savedText());
    EXPECT_EQ(store->writes(), model.writes);
    EXPECT_EQ(queue->size(), model.queue.size());
  }
};

TEST_F(EventStorageProperties, whateverHappensIsHeldAndWrittenAsTheModelSays) {
  for (int round = 0; round < 3000 && !HasFailure(); ++round) {
    SCOPED_TRACE(round);
    step();
    expectWhatTheModelSays();
  }
}

}  // namespace
}  // namespace kite::test
