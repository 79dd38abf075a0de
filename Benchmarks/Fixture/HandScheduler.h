#pragma once

#include <Kite/Platform/Tempra.h>

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace kite::bench {

/// Timers that run when they are told to, so that nothing else runs while something is measured.
class HandScheduler final : public Tempra::Scheduler {
 public:
  Tempra::Cancel schedule(Tempra::Duration, Tempra::Duration period, Tempra::Block block) override {
    const std::scoped_lock guard(_timers->mutex);
    const auto ticket = _timers->nextTicket++;
    _timers->byTicket.emplace(ticket, Timer{period, std::move(block)});
    return [timers = std::weak_ptr(_timers), ticket] {
      if (const auto alive = timers.lock()) alive->cancel(ticket);
    };
  }

  /// Runs every timer of that period once, on this thread.
  void fire(Tempra::Duration period) {
    for (const auto& block : blocks(period)) block();
  }

 private:
  struct Timer {
    Tempra::Duration period;
    Tempra::Block block;
  };
  struct Timers {
    void cancel(std::uint64_t ticket) {
      const std::scoped_lock guard(mutex);
      byTicket.erase(ticket);
    }

    std::mutex mutex;
    std::map<std::uint64_t, Timer> byTicket;
    std::uint64_t nextTicket = 0;
  };

  std::vector<Tempra::Block> blocks(Tempra::Duration period) const {
    std::vector<Tempra::Block> blocks;
    const std::scoped_lock guard(_timers->mutex);
    for (const auto& [ticket, timer] : _timers->byTicket) {
      if (timer.period == period) blocks.push_back(timer.block);
    }
    return blocks;
  }

  const std::shared_ptr<Timers> _timers = std::make_shared<Timers>();
};

}  // namespace kite::bench
