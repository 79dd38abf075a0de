#pragma once

#include "Base/Guarded.h"
#include "Base/MPSCStack.h"
#include "Base/SharedCount.h"
#include "Base/Started.h"
#include "Events/EventEncoder.h"
#include "Queue/EventStorage.h"
#include "Queue/ReclaimList.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace kite {

/// In the foreground changes are written by the next run of a timer, in the background at once:
/// there the process may end at any moment. A session's end writes too. Nothing is written on
/// destruction.
class EventStorageImpl final : public EventStorage,
                               public std::enable_shared_from_this<EventStorageImpl> {
 public:
  static constexpr std::string_view pendingEventsKey = "kite_pending_events";
  static constexpr Tempra::Duration syncInterval{10};
  /// About so many insertions are made at once that may wait.
  static constexpr std::uint64_t mostWaiting = 512;

  EventStorageImpl() = default;
  ~EventStorageImpl() override;
  EventStorageImpl(const EventStorageImpl&) = delete;
  EventStorageImpl& operator=(const EventStorageImpl&) = delete;

  void start(EventStorageDependencies dependencies) override;
  /// Waits for the events of the last run to be loaded.
  EventList pendingEvents() const override;
  QueueStatus status() const override;
  void insert(std::unique_ptr<PendingChange> event) override;
  using EventStorage::removeEvents;
  void removeEvents(std::set<std::string> ids, const RemovalAccount& account) override;
  void persist(std::function<void(bool isSaved)> done) override;

  /// Whether the events in memory differ from what was last written.
  bool isDirty() const { return _isDirty; }

  /// Stops the timer; empty when there is none.
  Tempra::Cancel cancellable() const { return _cancellable.copy(); }
  void setCancellable(Tempra::Cancel cancel) { _cancellable.set(std::move(cancel)); }

  void onSessionStart();
  void onSessionEnd();

 private:
  /// What blocks of the queue work on. Guarded by `mutex`: after another `start` blocks of two
  /// queues may run at a time.
  struct Work {
    std::mutex mutex;
    std::mutex loading;  // of the first load alone, which must not wait for a block
    std::shared_ptr<Larder::KVStorage> store;  // which the events were loaded from
    std::shared_ptr<EventLedger> ledger;
    bool savesLedger = false;
    std::string note;  // of the ledger, as it was saved last
    bool isNoteDue = false;
    std::optional<EventList> saved;        // what it holds, when that is known
    std::vector<Larder::SavedRow> placed;  // events that need no longer stay in memory
    Chain<PendingChange> changes;
    bool isFirstMade = false;
    EventEncoder encoder;
  };

  void startTimer();
  void addObservers(const SessionListener& sessionListener);
  void timerFired();
  void submit(std::unique_ptr<PendingChange> change);
  bool areManyWaiting() const;
  template <class Body>
  Tempra::Block block(Body body);
  template <class Body>
  void runOnQueue(Body body);

  // With the lock of `_work`.
  void load(Work& work) const;
  void makeSubmittedChanges(Work& work);
  void makeChanges(Work& work);
  void flush(Work& work);
  void updateMemoryPendingEvents(Work& work, const PendingChange& change);
  void append(const Work& work, EventHandle event);
  void remove(const Work& work, const PendingChange::Removal& removal);
  void alignMemoryAndDisk(Work& work, Larder::Durability durability);
  void storePendingEvents(Work& work, Larder::Durability durability);
  void releaseTexts(Work& work);

  Started<EventStorageDependencies> _dependencies{"Call start before using the EventStorage",
                                                  {"EventStorage", "", 84}};
  mutable Guarded<EventList> _pendingEvents;
  std::atomic<unsigned> _starts{0};
  mutable std::atomic<unsigned> _loadedStart{0};  // whose store's events are pending
  std::atomic<bool> _isDirty{false};
  std::atomic<bool> _isWriteDue{false};  // the last write failed
  std::atomic<bool> _isBlockDue{false};  // changes were submitted that no block makes
  Guarded<std::optional<CancelToken>> _sessionStartToken;
  Guarded<std::optional<CancelToken>> _sessionEndToken;
  Guarded<Tempra::Cancel> _cancellable;

  std::atomic<std::uint64_t> _appended{0};          // of the inserted events those in the list
  mutable std::atomic<std::uint64_t> _savedEnd{0};  // above the ordinals of events that are on disk
  SharedCount _inserted;
  MPSCStack<PendingChange> _submitted;
  ReclaimList _spent;
  mutable Work _work;
};

static_assert(std::is_default_constructible_v<EventStorageImpl>);

}  // namespace kite
