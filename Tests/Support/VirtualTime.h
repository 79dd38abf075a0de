#pragma once

#include <Kite/Base/Date.h>
#include <Kite/Platform/Tempra.h>

#include "Base/CatchingBadAlloc.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

namespace kite::test {

/// Time that passes only when a test says so, and the timers that live in it.
///
/// Timers due at one moment fire in the order in which they were scheduled. A timer is armed for
/// its next run before its block runs. Counts whole nanoseconds, so that steps add up exactly.
class VirtualTime final : public Tempra::Scheduler {
 public:
  explicit VirtualTime(Date start = {1'700'000'000}) : _state(std::make_shared<State>(start)) {}

  Tempra::Cancel schedule(Tempra::Duration firstDelay, Tempra::Duration period,
                          Tempra::Block block) override {
    const std::scoped_lock guard(_state->mutex);
    const auto ticket = _state->nextTicket++;
    _state->due.emplace(Key{_state->elapsed + nanoseconds(firstDelay), ticket},
                        Timer{nanoseconds(period), std::move(block)});
    return [state = std::weak_ptr(_state), ticket] {
      if (const auto alive = state.lock()) alive->cancel(ticket);
    };
  }

  /// Steps from due moment to due moment; each block sees its own as the present.
  void advance(Tempra::Duration by) {
    const auto end = _state->now() + nanoseconds(by);
    while (const auto block = _state->takeDue(end)) catchingBadAlloc(block);
    _state->finish(end);
  }

  /// How many timers there are: one that was never cancelled shows here.
  std::size_t armed() const {
    const std::scoped_lock guard(_state->mutex);
    return _state->due.size();
  }

  Date now() const { return _state->date(); }
  Tempra::TimeProvider provider() const {
    return {.now = [state = _state] { return state->date(); }};
  }

 private:
  using Nanoseconds = std::int64_t;
  using Key = std::pair<Nanoseconds, std::uint64_t>;  // when, and in which order
  struct Timer {
    Nanoseconds period;
    Tempra::Block block;
  };

  static Nanoseconds nanoseconds(Tempra::Duration duration) {
    return std::llround(duration.count() * 1e9);
  }

  struct State {
    explicit State(Date begin) : start(begin) {}

    Nanoseconds now() const {
      const std::scoped_lock guard(mutex);
      return elapsed;
    }
    Date date() const { return start + static_cast<double>(now()) / 1e9; }
    Tempra::Block takeDue(Nanoseconds end) {
      const std::scoped_lock guard(mutex);
      if (due.empty() || due.begin()->first.first > end) return {};
      auto node = due.extract(due.begin());
      elapsed = node.key().first;
      auto block = node.mapped().block;
      node.key().first += node.mapped().period;
      due.insert(std::move(node));
      return block;
    }
    void finish(Nanoseconds end) {
      const std::scoped_lock guard(mutex);
      elapsed = end;
    }
    void cancel(std::uint64_t ticket) {
      Timer cancelled;  // dies after the lock is released: its block may own a scheduler
      const std::scoped_lock guard(mutex);
      for (auto at = due.begin(); at != due.end(); ++at) {
        if (at->first.second != ticket) continue;
        cancelled = std::move(at->second);
        due.erase(at);
        return;
      }
    }

    const Date start;
    mutable std::mutex mutex;
    Nanoseconds elapsed = 0;
    std::uint64_t nextTicket = 0;
    std::map<Key, Timer> due;
  };

  std::shared_ptr<State> _state;
};

}  // namespace kite::test
