#pragma once

#include "Queue/EventStorage.h"
#include "Support/Events.h"

#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace kite::test {

/// Remembers the records that it was given, at once and in order. Any thread.
class FakeEventStorage final : public EventStorage {
 public:
  void start(EventStorageDependencies) override {}
  EventList pendingEvents() const override { return {}; }
  std::function<void()> onInsert = [] {};

  void insert(std::unique_ptr<PendingChange> event) override {
    onInsert();
    const std::scoped_lock guard(_mutex);
    _inserted.push_back(recordOf(*event));
    _mayWait.push_back(event->mayWait);
  }
  using EventStorage::removeEvents;
  QueueStatus status() const override { return {}; }
  void persist(std::function<void(bool)> done) override { done(true); }
  void removeEvents(std::set<std::string> ids, const RemovalAccount&) override {
    const std::scoped_lock guard(_mutex);
    std::erase_if(_inserted, [&](const StoredEvent& event) { return ids.contains(event.id); });
  }

  std::vector<StoredEvent> inserted() const {
    const std::scoped_lock guard(_mutex);
    return _inserted;
  }
  /// Of each that was inserted.
  std::vector<bool> mayWait() const {
    const std::scoped_lock guard(_mutex);
    return _mayWait;
  }

 private:
  mutable std::mutex _mutex;
  std::vector<StoredEvent> _inserted;
  std::vector<bool> _mayWait;
};

}  // namespace kite::test
