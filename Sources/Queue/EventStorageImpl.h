#pragma once

#include "Base/Guarded.h"
#include "Base/MPSCStack.h"
#include "Base/Started.h"
#include "Events/EventEncoder.h"
#include "Queue/EventStorage.h"
#include "Queue/ReclaimList.h"

#include <atomic>
#include <memory>
#include <optional>
#include <string_view>
#include <type_traits>

namespace kite {

/// In the foreground changes are written by the next run of a timer, in the background at once:
/// there the process may end at any moment. A session's end writes too. Nothing is written on
/// destruction.
class EventStorageImpl final : public EventStorage,
                               public std::enable_shared_from_this<EventStorageImpl> {
 public:
  static constexpr std::string_view pendingEventsKey = "kite_pending_events";
  static constexpr Tempra::Duration syncInterval{10};

  EventStorageImpl() = default;
  ~EventStorageImpl() override;
  EventStorageImpl(const EventStorageImpl&) = delete;
  EventStorageImpl& operator=(const EventStorageImpl&) = delete;

  void start(EventStorageDependencies dependencies) override;
  EventList pendingEvents() const override { return _pendingEvents.copy(); }
  void insert(TrackedEvent event) override;
  void removeEvents(std::set<std::string> ids) override;

  /// Whether the events in memory differ from what was last written.
  bool isDirty() const { return _isDirty; }

  /// Stops the timer; empty when there is none.
  Tempra::Cancel cancellable() const { return _cancellable.copy(); }
  void setCancellable(Tempra::Cancel cancel) { _cancellable.set(std::move(cancel)); }

  void onSessionStart();
  void onSessionEnd();

 private:
  void load();
  void startTimer();
  void addObservers(const SessionListener& sessionListener);
  void timerFired();
  void submit(std::unique_ptr<PendingChange> change);
  void enqueueFlush();

  // On `eventStorageQueue` only.
  void makeSubmittedChanges();
  void makeChanges();
  void flush();
  void updateMemoryPendingEvents(const PendingChange& change);
  void append(EventHandle event);
  void remove(const PendingChange::Removal& ids);
  void writeThrough();
  void alignMemoryAndDisk(Larder::Durability durability);
  void storePendingEvents(const EventList& events, Larder::Durability durability);

  Started<EventStorageDependencies> _dependencies{"Call start before using the EventStorage",
                                                  {"EventStorage", "", 84}};
  Guarded<EventList> _pendingEvents;
  std::atomic<bool> _isDirty{false};
  std::atomic<bool> _isWriteDue{false};  // the last write failed
  std::atomic<bool> _isBlockDue{false};  // changes were submitted that no block makes
  Guarded<std::optional<CancelToken>> _sessionStartToken;
  Guarded<std::optional<CancelToken>> _sessionEndToken;
  Guarded<Tempra::Cancel> _cancellable;
  Guarded<std::optional<EventList>> _savedEvents;  // what the store holds, when that is known

  MPSCStack<PendingChange> _submitted;
  ReclaimList _spent;
  // On `eventStorageQueue` only.
  Chain<PendingChange> _changes;
  bool _isFirstMade = false;
  EventEncoder _encoder;
};

static_assert(std::is_default_constructible_v<EventStorageImpl>);

}  // namespace kite
