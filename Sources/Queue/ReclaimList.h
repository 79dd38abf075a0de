#pragma once

#include "Base/MPSCStack.h"
#include "Queue/PendingChange.h"

#include <atomic>
#include <memory>
#include <utility>

namespace kite {

/// Changes that the storage is done with, on their way back to the threads that track.
///
/// An allocator guards each thread's memory by a lock. Were the memory of events given back by the
/// storage's thread, calls would sleep on that lock, many times as long as they take. Nobody waits
/// here.
class ReclaimList {
 public:
  static constexpr int mostKept = 256;
  static constexpr int destroyedOfACrowd = 4;

  ReclaimList() = default;
  ReclaimList(const ReclaimList&) = delete;
  ReclaimList& operator=(const ReclaimList&) = delete;
  ~ReclaimList() { Chain<PendingChange>(_waiting.load()); }

  /// Keeps the change until `reclaim`; from a crowd, for which nobody may come, the first ones.
  void add(std::unique_ptr<PendingChange> change) {
    if (_count.load(std::memory_order_relaxed) == mostKept) return;
    _count.fetch_add(1, std::memory_order_relaxed);
    _changes.add(std::move(change));
  }

  /// Destroys one, whose memory then serves the caller's next event; a few while they are many, for
  /// no call is to pay for a crowd.
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
    // What another thread has left there in the meantime.
    for (; !changes.empty(); ++destroyed) changes.takeFirst();
    _count.fetch_sub(destroyed, std::memory_order_relaxed);
  }

 private:
  MPSCStack<PendingChange> _changes;
  std::atomic<PendingChange*> _waiting = nullptr;  // taken, and not yet destroyed
  std::atomic<int> _count = 0;
};

}  // namespace kite
