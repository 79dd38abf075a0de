#pragma once

#include <Kite/Linux/LinuxPlatform.h>

#include "Fixture/HandScheduler.h"
#include "Fixture/QuietSystem.h"
#include "Fixture/ReferenceEvent.h"
#include "Fixture/Settle.h"
#include "Queue/EventStorageImpl.h"

#include <filesystem>
#include <memory>
#include <set>
#include <string>

namespace kite::bench {

/// The pending events in a real store, without the rest of a facade.
class StartedStorage {
 public:
  explicit StartedStorage(const std::filesystem::path& folder, bool isInBackground = false,
                          std::shared_ptr<Tempra::Queue> queue = Linux::workerQueue("kite.storage"))
      : _queue(std::move(queue)), _store(Linux::keyValueStorage(folder, quietSystem())) {
    _events->start({.backgroundChecker = {[isInBackground] { return isInBackground; }},
                    .scheduler = _timers,
                    .eventStorageQueue = _queue,
                    .kvStorage = _store,
                    .sessionListener = SessionListener::manual().witness});
  }

  StartedStorage(const StartedStorage&) = delete;
  StartedStorage& operator=(const StartedStorage&) = delete;
  /// The store's owner goes with the last block of the queue.
  ~StartedStorage() { settle(*_queue); }

  /// New events of one user.
  void insert(int count) {
    for (int i = 0; i < count; ++i)
      _events->insert(std::make_unique<PendingChange>(trackedEvent(_origin, _inserted++)));
    settle(*_queue);
  }
  /// The oldest ones, as an upload has them at hand.
  std::set<std::string> oldest(std::size_t count) const {
    std::set<std::string> ids;
    for (const auto& event : *pending().first(count)) ids.insert(event->id());
    return ids;
  }
  void accept(std::set<std::string> ids) {
    _events->removeEvents(std::move(ids));
    settle(*_queue);
  }
  void flush() {
    _timers->fire(EventStorageImpl::syncInterval);
    settle(*_queue);
  }
  EventList pending() const { return _events->pendingEvents(); }
  std::string storedText() const {
    return _store->read(EventStorageImpl::pendingEventsKey)->data().bytes;
  }

 private:
  const std::shared_ptr<const EventOrigin> _origin =
      std::make_shared<EventOrigin>(EventOrigin{application, user()});
  const std::shared_ptr<HandScheduler> _timers = std::make_shared<HandScheduler>();
  const std::shared_ptr<Tempra::Queue> _queue;
  const std::shared_ptr<Larder::KVStorage> _store;
  const std::shared_ptr<EventStorageImpl> _events = std::make_shared<EventStorageImpl>();
  int _inserted = 0;
};

}  // namespace kite::bench
