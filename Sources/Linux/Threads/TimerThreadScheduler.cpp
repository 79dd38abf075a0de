#include <Kite/Linux/LinuxPlatform.h>

#include "Base/CatchingBadAlloc.h"
#include "Linux/Threads/LibraryThread.h"
#include "Linux/Threads/WakeUpTimer.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

namespace kite::Linux {
namespace {

using Clock = std::chrono::steady_clock;

constexpr Tempra::Duration longestDelay{1e9};
constexpr Tempra::Duration shortestPeriod{1e-3};  // a period of zero would keep a core busy

Clock::duration clamped(Tempra::Duration delay, Tempra::Duration least) {
  if (!(delay > least)) return std::chrono::duration_cast<Clock::duration>(least);
  return std::chrono::duration_cast<Clock::duration>(std::min(delay, longestDelay));
}

// What the scheduler, its threads and the cancel functions share.
//
// One thread runs the blocks. A second one stands by as soon as there are two timers, since only a
// thread can notice that another one is blocked; it sleeps until a block has taken too long, then
// goes on with the other timers and has a third one stand by. A block is not among the timers while
// it runs, so that none overlaps itself.
class Timers : public std::enable_shared_from_this<Timers> {
 public:
  using Ticket = std::uint64_t;

  Timers() { _running.reserve(mostThreads); }

  Ticket newTicket() { return _nextTicket++; }

  void add(Ticket ticket, Clock::duration firstDelay, Clock::duration period, Tempra::Block block) {
    std::unique_lock guard(_mutex);
    ensureFreeThread();
    const bool hasThread = _threads > 0;
    _due.emplace(Key{Clock::now() + firstDelay, ticket},
                 Timer{period, std::make_shared<Tempra::Block>(std::move(block))});
    _wakeUp.set(nextWakeUp());
    guard.unlock();
    if (!hasThread) System::live().print("[KITE] No thread can be started for timers, they wait");
  }

  // No thread is told: at worst one finds nothing due, once.
  void cancel(Ticket ticket) {
    SharedBlock cancelled;  // dies after the lock is released
    const std::scoped_lock guard(_mutex);
    if (std::erase(_running, ticket) > 0) return;
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
    _wakeUp.set(Clock::now());
  }

 private:
  static constexpr std::size_t mostThreads = 3;
  static constexpr std::size_t usualThreads = 2;
  static constexpr auto patience = std::chrono::milliseconds(50);  // with a block that others await

  using Key = std::pair<Clock::time_point, Ticket>;
  using SharedBlock = std::shared_ptr<Tempra::Block>;
  struct Timer {
    Clock::duration period;
    SharedBlock block;

    // How late it may run, so that timers which are due at about one time share a wake-up.
    Clock::duration tolerance() const {
      return std::min<Clock::duration>(period / 100, std::chrono::milliseconds(20));
    }
  };

  void ensureFreeThread() {
    if (_threads > _busyThreads || _threads == mostThreads || !_wakeUp.isThere()) return;
    if (startThread("kite.timers", [self = shared_from_this()] { self->work(); })) ++_threads;
  }

  void work() {
    std::unique_lock guard(_mutex);
    while (!_isStopped) {
      guard.unlock();
      const bool isAwake = _wakeUp.await();
      guard.lock();
      if (!isAwake) break;
      runDue(guard);
      if (_threads > usualThreads && _threads - _busyThreads > 1) break;
    }
    --_threads;
    if (_isStopped) _wakeUp.set(Clock::now());  // for the next thread
  }

  void runDue(std::unique_lock<std::mutex>& guard) {
    ++_busyThreads;
    for (auto now = Clock::now(); !_due.empty() && _due.begin()->first.first <= now;
         now = Clock::now())
      runFirst(guard, now);
    --_busyThreads;
    _wakeUp.set(nextWakeUp());
  }

  // A block that finds no memory has its next time.
  void runFirst(std::unique_lock<std::mutex>& guard, Clock::time_point now) {
    auto timer = _due.extract(_due.begin());
    const auto period = timer.mapped().period;
    auto& [due, ticket] = timer.key();
    due += period;
    if (due <= now) due = now + period;
    _running.push_back(ticket);
    if (!_due.empty()) {
      ensureFreeThread();
      _wakeUp.set(std::max(nextWakeUp(), now + patience));
    }
    guard.unlock();
    catchingBadAlloc(*timer.mapped().block);
    guard.lock();
    const bool isWanted = std::erase(_running, ticket) > 0 && !_isStopped;
    if (isWanted) {
      _due.insert(std::move(timer));
    } else {
      guard.unlock();
      timer = {};  // without the lock, as the block may own anything
      guard.lock();
    }
  }

  // When the last of the timers is due that the first one can wait for.
  Clock::time_point nextWakeUp() const {
    auto time = WakeUpTimer::never;
    auto latest = WakeUpTimer::never;
    for (const auto& [key, timer] : _due) {
      if (key.first > latest) break;
      time = key.first;
      latest = std::min(latest, time + timer.tolerance());
    }
    return time;
  }

  const WakeUpTimer _wakeUp;
  std::mutex _mutex;
  std::map<Key, Timer> _due;
  std::vector<Ticket> _running;  // without the cancelled ones
  std::atomic<Ticket> _nextTicket = 0;
  std::size_t _threads = 0;
  std::size_t _busyThreads = 0;
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
