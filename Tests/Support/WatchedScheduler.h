#pragma once

#include <Kite/Platform/Tempra.h>

#include <functional>
#include <memory>
#include <utility>

namespace kite::test {

/// Another scheduler, seen through: calls `onSchedule` before each timer that it schedules, and
/// `onCancel` at each call of a cancel function.
class WatchedScheduler final : public Tempra::Scheduler {
 public:
  WatchedScheduler(
      std::shared_ptr<Tempra::Scheduler> scheduler, std::function<void()> onSchedule,
      std::function<void()> onCancel = [] {})
      : _scheduler(std::move(scheduler)),
        _onSchedule(std::move(onSchedule)),
        _onCancel(std::move(onCancel)) {}

  Tempra::Cancel schedule(Tempra::Duration firstDelay, Tempra::Duration period,
                          Tempra::Block block) override {
    _onSchedule();
    return [onCancel = _onCancel,
            cancel = _scheduler->schedule(firstDelay, period, std::move(block))] {
      onCancel();
      cancel();
    };
  }

 private:
  std::shared_ptr<Tempra::Scheduler> _scheduler;
  std::function<void()> _onSchedule;
  std::function<void()> _onCancel;
};

}  // namespace kite::test
