#pragma once

#include "Core/Event/TrackedEvent.h"

#include <atomic>
#include <memory>
#include <utility>

namespace kite {

/// Events that the storage is done with, on their way back to the threads that track.
///
/// An allocator guards each thread's memory by a lock. Were the memory of events given back by the
/// storage's thread, calls would sleep on that lock, many times as long as they take. Nobody waits
/// here.
class SpentEvents {
 public:
  static constexpr int mostKept = 16;

  SpentEvents() = default;
  SpentEvents(const SpentEvents&) = delete;
  SpentEvents& operator=(const SpentEvents&) = delete;
  ~SpentEvents() { destroy(); }

  /// Keeps the event until `destroy`; from a crowd, for which nobody may come, the first ones.
  void add(TrackedEvent event) {
    if (_count.load(std::memory_order_relaxed) == mostKept) return;
    _count.fetch_add(1, std::memory_order_relaxed);
    auto* const added = event._event.get();
    added->spent = std::move(event._event);
    added->nextSpent = _newest.load(std::memory_order_relaxed);
    while (!_newest.compare_exchange_weak(added->nextSpent, added, std::memory_order_release,
                                          std::memory_order_relaxed)) {
    }
  }

  void destroy() {
    if (!_newest.load(std::memory_order_relaxed)) return;
    auto* event = _newest.exchange(nullptr, std::memory_order_acquire);
    while (event) {
      const auto spent = std::move(event->spent);
      event = spent->nextSpent;
      _count.fetch_sub(1, std::memory_order_relaxed);
    }
  }

 private:
  std::atomic<TrackedEvent::Event*> _newest = nullptr;
  std::atomic<int> _count = 0;
};

}  // namespace kite
