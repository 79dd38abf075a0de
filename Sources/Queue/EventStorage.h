#pragma once

#include <Kite/BackgroundChecker.h>
#include <Kite/Platform/Larder.h>
#include <Kite/Platform/Tempra.h>
#include <Kite/SessionListener.h>

#include "Queue/EventLedger.h"
#include "Queue/EventList.h"
#include "Queue/PendingChange.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <utility>

namespace kite {

struct EventStorageDependencies {
  BackgroundChecker backgroundChecker;
  std::shared_ptr<Tempra::Scheduler> scheduler;
  std::shared_ptr<Tempra::Queue> eventStorageQueue;
  std::shared_ptr<Larder::KVStorage> kvStorage;
  SessionListener sessionListener;
  std::shared_ptr<EventLedger> ledger = std::make_shared<EventLedger>();
  bool savesLedger = false;  ///< with the events, so that it outlives this run
};

/// Where the queue stands, at one moment.
struct QueueStatus {
  Ledger ledger;
  std::uint64_t onDisk = 0;  ///< of the pending events
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
  /// Waits for nothing: before the events of the last run are loaded they are not counted.
  virtual QueueStatus status() const = 0;

  virtual void insert(std::unique_ptr<PendingChange> event) = 0;
  /// Removes every event with one of these identifiers; others are ignored.
  virtual void removeEvents(std::set<std::string> ids, const RemovalAccount& account) = 0;
  void removeEvents(std::set<std::string> ids) { removeEvents(std::move(ids), {}); }

  /// Makes all changes that were submitted before, and puts the events on the medium if it can.
  /// Then says on the queue whether it could.
  virtual void persist(std::function<void(bool isSaved)> done) = 0;
};

}  // namespace kite
