#include "Queue/EventStorageImpl.h"

#include "Support/Events.h"
#include "Support/InMemoryKVStorage.h"
#include "Support/Queues.h"
#include "Support/VirtualTime.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <random>

namespace kite::test {
namespace {

/// Random changes of a storage that dies now and then, and what may be left of them: one of the
/// states since the last one that was surely saved.
class EventStorageProperties : public testing::Test {
 protected:
  /// The events' texts, by identifier; "" for one that does not encode.
  using State = std::vector<std::pair<std::string, std::string>>;

  std::shared_ptr<VirtualTime> time = std::make_shared<VirtualTime>();
  std::shared_ptr<InMemoryKVStorage> store = std::make_shared<InMemoryKVStorage>();
  std::shared_ptr<ManualQueue> queue;
  ManualSessionListener sessions = SessionListener::manual();
  std::shared_ptr<EventStorageImpl> storage;
  bool isInBackground = false;
  bool isDiskFull = false;
  State pending;
  std::vector<State> possible{pending};
  std::mt19937_64 random{43};

  void SetUp() override { start(); }
  void start() {
    queue = std::make_shared<ManualQueue>();
    storage = std::make_shared<EventStorageImpl>();
    storage->start({.backgroundChecker = {[this] { return isInBackground; }},
                    .scheduler = time,
                    .eventStorageQueue = queue,
                    .kvStorage = store,
                    .sessionListener = sessions.witness});
  }

  /// One of a few, so that some events share one. Every other one is a UUID.
  std::string someId() {
    const auto number = std::to_string(10 + random() % 20);
    return random() % 2 == 0 ? "E-" + number : "AB000000-0000-0000-0000-0000000000" + number;
  }
  void insert() {
    const auto id = someId();
    storage->insert(aChange(anEvent(id)));
    pending.emplace_back(id, textOfAnEvent(id));
  }
  void insertWhatDoesNotEncode() {
    if (random() % 8 != 0) return;
    const auto id = someId();
    storage->insert(aChange(anUnencodableEvent(id)));
    pending.emplace_back(id, "");
  }
  void remove() {
    std::set<std::string> ids;
    for (auto count = random() % 12; count > 0; --count) ids.insert(someId());
    storage->removeEvents(ids);
    std::erase_if(pending, [&](const auto& event) { return ids.contains(event.first); });
  }
  void endSession() { sessions.triggerSessionEnd(); }
  void passTenSeconds() { time->advance(EventStorageImpl::syncInterval); }
  void runOne() { queue->runOne(); }
  void changeSides() { isInBackground = !isInBackground; }
  void fillOrFreeTheDisk() {
    isDiskFull = !isDiskFull;
    store->failWrites(isDiskFull);
  }

  static State stateOf(const EventList& events) {
    State state;
    for (const auto& event : all(events)) state.emplace_back(event->id(), storedText(*event));
    return state;
  }
  /// The timer looks at what the queue has made of the changes.
  void flush() {
    queue->drain();
    passTenSeconds();
    queue->drain();
    EXPECT_EQ(stateOf(storage->pendingEvents()), pending);
    const bool isSaved = !isDiskFull && std::ranges::none_of(pending, &std::string::empty,
                                                             &State::value_type::second);
    if (!isSaved || pending == possible.front()) return;
    std::string array;
    for (const auto& event : pending) array.append(array.empty() ? "" : ",").append(event.second);
    EXPECT_EQ(store->text(EventStorageImpl::pendingEventsKey), "[" + array + "]");
    possible = {pending};
  }
  void dieAndStart() {
    storage.reset();
    store->restart();
    start();
    pending = stateOf(storage->pendingEvents());
    EXPECT_THAT(possible, testing::Contains(pending));
    possible = {pending};
  }

  void step() {
    using Self = EventStorageProperties;
    static constexpr void (Self::*steps[])() = {
        &Self::insert,           &Self::insert,      &Self::insertWhatDoesNotEncode,
        &Self::remove,           &Self::runOne,      &Self::runOne,
        &Self::endSession,       &Self::changeSides, &Self::passTenSeconds,
        &Self::fillOrFreeTheDisk};
    (this->*steps[random() % std::size(steps)])();
    possible.push_back(pending);
    if (random() % 16 == 0) flush();
    if (random() % 64 == 0) dieAndStart();
  }
};

TEST_F(EventStorageProperties, whateverHappensIsHeldAndAtMostWhatWasNotSavedIsLost) {
  for (int round = 0; round < 4000 && !HasFailure(); ++round) {
    SCOPED_TRACE(round);
    step();
  }
}

}  // namespace
}  // namespace kite::test
