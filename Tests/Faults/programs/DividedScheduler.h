#pragma once

#include <Kite/Platform/Tempra.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace kite::faults {

/// Runs time faster: a period of ten seconds takes ten seconds divided by `divisor`.
///
/// `published` is moved to a moment of this fast time once everything that was due until then has
/// been done: before and after each run, `settle` waits for the work that the library has queued.
/// With a divisor of nothing, timers run only when they are fired by hand.
class DividedScheduler final : public Tempra::Scheduler {
 public:
  DividedScheduler(double divisor, std::function<void()> settle, std::atomic<double>* published)
      : _divisor(divisor), _settle(std::move(settle)), _published(published) {}

  Tempra::Cancel schedule(Tempra::Duration firstDelay, Tempra::Duration period,
                          Tempra::Block block) override {
    const std::scoped_lock guard(_mutex);
    if (!_hasThread && _divisor > 0) {
      _hasThread = true;
      std::thread([this] { work(); }).detach();  // the scheduler lives as long as the process
    }
    const Key key{now() + firstDelay.count(), _nextTicket++};
    _due.emplace(key, Timer{period.count(), std::make_shared<Tempra::Block>(std::move(block))});
    _changed.notify_one();
    return [this, ticket = key.second] { cancel(ticket); };
  }

  /// Seconds of the fast time.
  double now() const {
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - _begin;
    return passed.count() * _divisor;
  }

  /// Runs the timers of this period once, here.
  void fire(double period) {
    std::vector<std::shared_ptr<Tempra::Block>> blocks;
    {
      const std::scoped_lock guard(_mutex);
      for (const auto& [key, timer] : _due)
        if (timer.period == period) blocks.push_back(timer.block);
    }
    for (const auto& block : blocks) (*block)();
  }

 private:
  using Key = std::pair<double, std::uint64_t>;  // when it is due, and its ticket
  struct Timer {
    double period;
    std::shared_ptr<Tempra::Block> block;
  };

  void cancel(std::uint64_t ticket) {
    const std::scoped_lock guard(_mutex);
    std::erase_if(_due, [ticket](const auto& timer) { return timer.first.second == ticket; });
  }

  [[noreturn]] void work() {
    for (;;) {
      const auto [due, block] = awaitDue();
      _settle();
      (*block)();
      _settle();
      if (_published) _published->store(due);
    }
  }

  std::pair<double, std::shared_ptr<Tempra::Block>> awaitDue() {
    std::unique_lock guard(_mutex);
    for (;;) {
      if (_due.empty()) {
        _changed.wait(guard);
        continue;
      }
      const double due = _due.begin()->first.first;
      const double left = (due - now()) / _divisor;
      if (left <= 0) return {due, rearmFirst()};
      _changed.wait_for(guard, std::chrono::duration<double>(left));
    }
  }

  std::shared_ptr<Tempra::Block> rearmFirst() {
    auto node = _due.extract(_due.begin());
    auto block = node.mapped().block;
    node.key().first += node.mapped().period;
    _due.insert(std::move(node));
    return block;
  }

  const double _divisor;
  const std::function<void()> _settle;
  std::atomic<double>* const _published;
  const std::chrono::steady_clock::time_point _begin = std::chrono::steady_clock::now();

  std::mutex _mutex;  // guards all below
  std::condition_variable _changed;
  std::map<Key, Timer> _due;
  std::uint64_t _nextTicket = 0;
  bool _hasThread = false;
};

}  // namespace kite::faults
