#include <Kite/Linux/LinuxPlatform.h>

#include "Base/CatchingBadAlloc.h"
#include "Linux/Threads/LibraryThread.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <utility>

namespace kite::Linux {
namespace {

using Clock = std::chrono::steady_clock;

constexpr Tempra::Duration longestDelay{1e9};
constexpr Tempra::Duration shortestPeriod{1e-3};  // a period of zero would keep a core busy

Clock::duration clamped(Tempra::Duration delay, Tempra::Duration least) {
  if (!(delay > least)) return std::chrono::duration_cast<Clock::duration>(least);
  return std::chrono::duration_cast<Clock::duration>(std::min(delay, longestDelay));
}

// What the scheduler, its thread and the cancel functions share.
class Timers : public std::enable_shared_from_this<Timers> {
 public:
  using Ticket = std::uint64_t;

  Ticket newTicket() { return _nextTicket++; }

  void add(Ticket ticket, Clock::duration firstDelay, Clock::duration period, Tempra::Block block) {
    std::unique_lock guard(_mutex);
    const bool hasThread = ensureThread();
    const auto added =
        _due.emplace(Key{Clock::now() + firstDelay, ticket},
                     Timer{period, std::make_shared<Tempra::Block>(std::move(block))})
            .first;
    const bool isNext = added == _due.begin();
    guard.unlock();
    if (!hasThread) System::live().print("[KITE] No thread can be started for timers, they wait");
    if (isNext) _changed.notify_one();
  }

  // The thread is not told: at worst it finds nothing due, once.
  void cancel(Ticket ticket) {
    SharedBlock cancelled;  // dies after the lock is released
    const std::scoped_lock guard(_mutex);
    const auto found = std::find_if(_due.begin(), _due.end(), [ticket](const auto& timer) {
      return timer.first.second == ticket;
    });
    if (found == _due.end()) return;
    cancelled = std::move(found->second.block);
    _due.erase(found);
  }

  void stop() {
    std::map<Key, Timer> stopped;
    const std::scoped_lock guard(_mutex);
    _isStopped = true;
    stopped.swap(_due);
    _changed.notify_one();
  }

 private:
  using Key = std::pair<Clock::time_point, Ticket>;
  using SharedBlock = std::shared_ptr<Tempra::Block>;
  struct Timer {
    Clock::duration period;
    SharedBlock block;
  };

  bool ensureThread() {
    if (!_hasThread)
      _hasThread = startThread("kite.timers", [self = shared_from_this()] { self->work(); });
    return _hasThread;
  }

  void work() {
    // A block that finds no memory has its next time.
    while (const auto block = awaitDue()) catchingBadAlloc(*block);
  }

  // The block to run next, its timer armed again; null at the end.
  SharedBlock awaitDue() {
    std::unique_lock guard(_mutex);
    while (!_isStopped) {
      if (_due.empty()) {
        _changed.wait(guard);
        continue;
      }
      const auto now = Clock::now();
      const auto next = _due.begin()->first.first;
      if (next <= now) return rearmFirst(now);
      _changed.wait_until(guard, next);
    }
    return nullptr;
  }

  SharedBlock rearmFirst(Clock::time_point now) {
    auto node = _due.extract(_due.begin());
    auto block = node.mapped().block;
    auto& due = node.key().first;
    due += node.mapped().period;
    if (due <= now) due = now + node.mapped().period;
    _due.insert(std::move(node));
    return block;
  }

  std::mutex _mutex;
  std::condition_variable _changed;
  std::map<Key, Timer> _due;
  std::atomic<Ticket> _nextTicket = 0;
  bool _hasThread = false;
  bool _isStopped = false;
};

class TimerThreadScheduler final : public Tempra::Scheduler {
 public:
  TimerThreadScheduler() : _timers(std::make_shared<Timers>()) {}
  TimerThreadScheduler(const TimerThreadScheduler&) = delete;
  TimerThreadScheduler& operator=(const TimerThreadScheduler&) = delete;
  ~TimerThreadScheduler() override { _timers->stop(); }

  Tempra::Cancel schedule(Tempra::Duration firstDelay, Tempra::Duration period,
                          Tempra::Block block) override {
    const auto ticket = _timers->newTicket();
    Tempra::Cancel cancel = [timers = std::weak_ptr(_timers), ticket] {
      if (const auto alive = timers.lock()) alive->cancel(ticket);
    };
    _timers->add(ticket, clamped(firstDelay, Tempra::Duration::zero()),
                 clamped(period, shortestPeriod), std::move(block));
    return cancel;
  }

 private:
  const std::shared_ptr<Timers> _timers;
};

}  // namespace

std::shared_ptr<Tempra::Scheduler> timerThreadScheduler() {
  return std::make_shared<TimerThreadScheduler>();
}

}  // namespace kite::Linux
