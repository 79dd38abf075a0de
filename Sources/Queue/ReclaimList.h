#pragma once

#include "Base/MPSCStack.h"
#include "Queue/PendingChange.h"

#include <atomic>
#include <memory>
#include <utility>

namespace kite {

/// Changes that the storage has made. The threads that track destroy them, a few in each call.
///
/// The allocator guards the memory that a thread allocates by a lock. If the storage's thread freed
/// that memory, tracking calls would wait for the lock, many times as long as a call takes. Here no
/// thread waits for another.
class ReclaimList {
 public:
  static constexpr int mostKept = 1024;        // twice what is made in one go
  static constexpr int destroyedOfACrowd = 4;  // in one call, when more than half of that wait

  ReclaimList() = default;
  ReclaimList(const ReclaimList&) = delete;
  ReclaimList& operator=(const ReclaimList&) = delete;
  ~ReclaimList() { Chain<PendingChange>(_waiting.load()); }

  /// Keeps the change until `reclaim`. A full list destroys it at once, for perhaps no call comes.
  void add(std::unique_ptr<PendingChange> change) {
    if (_count.load(std::memory_order_relaxed) == mostKept) return;
    _count.fetch_add(1, std::memory_order_relaxed);
    _changes.add(std::move(change));
  }

  /// Destroys one change, so that its memory serves the caller's next event; a few when many wait.
  void reclaim() {
    const int count = _count.load(std::memory_order_relaxed);
    if (count == 0) return;
    const int most = count > mostKept / 2 ? destroyedOfACrowd : 1;
    Chain changes(_waiting.exchange(nullptr, std::memory_order_acquire));
    if (changes.empty()) changes = _changes.takeAll();
    int destroyed = 0;
    for (; !changes.empty() && destroyed < most; ++destroyed) changes.takeFirst();
    if (!changes.empty())
      changes = Chain(_waiting.exchange(changes.release(), std::memory_order_acq_rel));
    // Another thread may have put its rest there in the meantime.
    for (; !changes.empty(); ++destroyed) changes.takeFirst();
    _count.fetch_sub(destroyed, std::memory_order_relaxed);
  }

 private:
  MPSCStack<PendingChange> _changes;
  std::atomic<PendingChange*> _waiting = nullptr;  // taken from `_changes`, not yet destroyed
  std::atomic<int> _count = 0;
};

}  // namespace kite
