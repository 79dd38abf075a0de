#pragma once

#include <Kite/BackgroundChecker.h>
#include <Kite/Platform/Larder.h>
#include <Kite/Platform/Tempra.h>
#include <Kite/SessionListener.h>

#include "Queue/EventList.h"
#include "Queue/PendingChange.h"

#include <memory>
#include <set>
#include <string>

namespace kite {

struct EventStorageDependencies {
  BackgroundChecker backgroundChecker;
  std::shared_ptr<Tempra::Scheduler> scheduler;
  std::shared_ptr<Tempra::Queue> eventStorageQueue;
  std::shared_ptr<Larder::KVStorage> kvStorage;
  SessionListener sessionListener;
};

/// The pending events: held in memory, mirrored to the key-value store, oldest first.
///
/// Changes are applied one at a time on `eventStorageQueue`; `pendingEvents` answers at once from
/// any thread and may therefore miss a change that is still waiting on the queue.
class EventStorage {
 public:
  virtual ~EventStorage() = default;

  /// Loads what the last run left behind and begins the periodic flush. Call once, before anything
  /// else.
  virtual void start(EventStorageDependencies dependencies) = 0;

  /// A snapshot; its cost does not depend on the number of events.
  virtual EventList pendingEvents() const = 0;

  virtual void insert(std::unique_ptr<PendingChange> event) = 0;
  /// Removes every event with one of these identifiers; others are ignored.
  virtual void removeEvents(std::set<std::string> ids) = 0;
};

}  // namespace kite
