#pragma once

#include <Kite/Base/Date.h>

#include <chrono>
#include <functional>
#include <utility>

/// Scheduling: timers, serial queues, the clock.
namespace kite::Tempra {

using Block = std::function<void()>;
using Cancel = std::function<void()>;
using Duration = std::chrono::duration<double>;

/// Runs blocks again and again. Any thread may call it.
class Scheduler {
 public:
  virtual ~Scheduler() = default;

  /// Runs `block` after `firstDelay` and then every `period`, one run at a time, on a thread of the
  /// scheduler's.
  ///
  /// A late run is not made up for by a burst. A block may throw `std::bad_alloc`, and nothing
  /// else: that run is over, the next has its time. The returned function stops further runs; it
  /// may be called more than once, from any thread and from within the block, and never waits for a
  /// run that is under way. Dropping it stops nothing.
  [[nodiscard]] virtual Cancel schedule(Duration firstDelay, Duration period, Block block) = 0;
};

/// Runs blocks one at a time, in the order in which they were submitted.
class Queue {
 public:
  /// Never waits for a block that is running; blocks not yet begun may be dropped.
  virtual ~Queue() = default;

  /// Takes the block and returns at once. Any thread may call it, a running block too. It may throw
  /// `std::bad_alloc`, having taken nothing.
  ///
  /// A block may throw `std::bad_alloc`, and nothing else: it is run again a little later, before
  /// all others. Whoever submits it sees to it that it can be.
  virtual void run(Block block) = 0;

  /// As `run`, in one order with it, for a block that nobody waits for: it may stay where it is
  /// until a block comes by `run`, or many have come, or `runWaiting` is called. So it need not
  /// wake a thread that sleeps.
  virtual void runSoon(Block block) { run(std::move(block)); }

  /// Runs, on the caller's thread and in order, what `runSoon` has left waiting. Returns at once
  /// when nothing does or another thread runs blocks of this queue.
  virtual void runWaiting() {}
};

/// The clock that sessions are measured by.
struct TimeProvider {
  std::function<Date()> now;
};

}  // namespace kite::Tempra
