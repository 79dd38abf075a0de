#pragma once

#include <Kite/Platform/Tempra.h>

#include <functional>
#include <memory>
#include <utility>

namespace kite::test {

/// Another scheduler, seen through: calls `onSchedule` before each timer that it schedules.
class WatchedScheduler final : public Tempra::Scheduler {
 public:
  WatchedScheduler(std::shared_ptr<Tempra::Scheduler> scheduler, std::function<void()> onSchedule)
      : _scheduler(std::move(scheduler)), _onSchedule(std::move(onSchedule)) {}

  Tempra::Cancel schedule(Tempra::Duration firstDelay, Tempra::Duration period,
                          Tempra::Block block) override {
    _onSchedule();
    return _scheduler->schedule(firstDelay, period, std::move(block));
  }

 private:
  std::shared_ptr<Tempra::Scheduler> _scheduler;
  std::function<void()> _onSchedule;
};

}  // namespace kite::test
