#include <Kite/Linux/LinuxPlatform.h>

#include "Support/VirtualTime.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <new>
#include <semaphore>
#include <thread>
#include <utility>
#include <vector>

namespace kite::test {
namespace {

using Tempra::Duration;

struct InVirtualTime {
  std::shared_ptr<VirtualTime> time = std::make_shared<VirtualTime>();
  std::shared_ptr<Tempra::Scheduler> scheduler = time;
  Duration elapsed() const { return Duration(time->now() - Date{1'700'000'000}); }
  void step() { time->advance(Duration{0.001}); }
};

struct OnTimerThread {
  std::shared_ptr<Tempra::Scheduler> scheduler = Linux::timerThreadScheduler();
  std::chrono::steady_clock::time_point begin = std::chrono::steady_clock::now();
  Duration elapsed() const { return std::chrono::steady_clock::now() - begin; }
  void step() { std::this_thread::sleep_for(std::chrono::milliseconds(1)); }
};

template <class Setting>
class SchedulerContract : public testing::Test {
 protected:
  void passTimeUntil(const std::function<bool()>& condition) {
    while (!condition()) setting.step();
  }
  // Time enough for every timer of these tests to run: one that was made later has done so.
  void passSomeTime() {
    const auto runs = std::make_shared<std::atomic<int>>(0);
    const auto cancel =
        setting.scheduler->schedule(Duration{0.02}, Duration{0.01}, [runs] { ++*runs; });
    passTimeUntil([&] { return *runs >= 3; });
    cancel();
  }

  Setting setting;
};

using Settings = testing::Types<InVirtualTime, OnTimerThread>;
TYPED_TEST_SUITE(SchedulerContract, Settings);

TYPED_TEST(SchedulerContract, firstRunsABlockAfterTheFirstDelay) {
  std::atomic<bool> hasRun = false;
  const auto start = this->setting.elapsed();
  const auto cancel = this->setting.scheduler->schedule(Duration{0.03}, Duration{100},
                                                        [&hasRun] { hasRun = true; });
  this->passTimeUntil([&] { return hasRun.load(); });
  EXPECT_GE((this->setting.elapsed() - start).count(), 0.03 - 1e-6);
  cancel();
}

TYPED_TEST(SchedulerContract, runsABlockAgainEveryPeriod) {
  std::atomic<int> runs = 0;
  const auto start = this->setting.elapsed();
  const auto cancel =
      this->setting.scheduler->schedule(Duration{0.01}, Duration{0.005}, [&runs] { ++runs; });
  this->passTimeUntil([&] { return runs >= 5; });
  EXPECT_GE((this->setting.elapsed() - start).count(), 0.03 - 1e-6);
  cancel();
  this->passSomeTime();
}

TYPED_TEST(SchedulerContract, goesOnAfterABlockThatFoundNoMemory) {
  std::atomic<int> runs = 0;
  const auto cancel = this->setting.scheduler->schedule(Duration{0.01}, Duration{0.005}, [&runs] {
    if (++runs < 3) throw std::bad_alloc();
  });
  this->passTimeUntil([&] { return runs >= 5; });
  cancel();
  this->passSomeTime();
}

TYPED_TEST(SchedulerContract, keepsTimersApart) {
  std::atomic<int> often = 0;
  std::atomic<int> seldom = 0;
  const auto cancelOften =
      this->setting.scheduler->schedule(Duration{0.01}, Duration{0.01}, [&often] { ++often; });
  const auto cancelSeldom =
      this->setting.scheduler->schedule(Duration{100}, Duration{100}, [&seldom] { ++seldom; });
  this->passTimeUntil([&] { return often >= 3; });
  EXPECT_EQ(seldom, 0);
  cancelOften();
  cancelSeldom();
  this->passSomeTime();
}

TYPED_TEST(SchedulerContract, startsAnEarlierTimerThatComesLater) {
  std::atomic<bool> hasRun = false;
  const auto cancelLate =
      this->setting.scheduler->schedule(Duration{1000}, Duration{1000}, [] { FAIL(); });
  this->setting.step();
  const auto cancelSoon = this->setting.scheduler->schedule(Duration{0.01}, Duration{1000},
                                                            [&hasRun] { hasRun = true; });
  this->passTimeUntil([&] { return hasRun.load(); });
  cancelLate();
  cancelSoon();
}

TYPED_TEST(SchedulerContract, stopsAfterACancel) {
  const auto runs = std::make_shared<std::atomic<int>>(0);
  const auto cancel =
      this->setting.scheduler->schedule(Duration{0.01}, Duration{0.01}, [runs] { ++*runs; });
  this->passTimeUntil([&] { return *runs >= 2; });
  cancel();
  this->passSomeTime();  // a run that was under way has ended
  const int runsAtCancel = *runs;
  this->passSomeTime();
  EXPECT_EQ(*runs, runsAtCancel);
}

TYPED_TEST(SchedulerContract, neverRunsABlockCancelledInTime) {
  constexpr Duration delay{0.02};
  bool isInTime = false;
  while (!isInTime) {  // the machine may halt between the two calls
    const auto runs = std::make_shared<std::atomic<int>>(0);
    std::atomic<bool> isCancelled = false;
    const auto cancel =
        this->setting.scheduler->schedule(Duration{0.01}, Duration{1000}, [&, runs] {
          const auto start = this->setting.elapsed();
          this->setting.scheduler->schedule(delay, Duration{0.01}, [runs] { ++*runs; })();
          isInTime = this->setting.elapsed() - start < delay;
          isCancelled = true;
        });
    this->passTimeUntil([&] { return isCancelled.load(); });
    this->passSomeTime();
    if (isInTime) {
      EXPECT_EQ(*runs, 0);
    }
    cancel();
  }
}

TYPED_TEST(SchedulerContract, letsABlockCancelItself) {
  struct Timer {
    std::atomic<int> runs = 0;
    std::binary_semaphore hasCancel{0};
    Tempra::Cancel cancel;
  };
  const auto timer = std::make_shared<Timer>();
  timer->cancel = this->setting.scheduler->schedule(Duration{0.02}, Duration{0.001}, [timer] {
    if (++timer->runs != 2) return;
    timer->hasCancel.acquire();
    timer->cancel();
  });
  timer->hasCancel.release();
  this->passTimeUntil([&] { return timer->runs >= 2; });
  this->passSomeTime();
  EXPECT_EQ(timer->runs, 2);
}

TYPED_TEST(SchedulerContract, lateCancelsAreHarmless) {
  auto cancel = this->setting.scheduler->schedule(Duration{1000}, Duration{1000}, [] {});
  cancel();
  cancel();
  this->setting = {};
  cancel();
}

TYPED_TEST(SchedulerContract, goesOnWhenTheCancelFunctionIsDropped) {
  const auto runs = std::make_shared<std::atomic<int>>(0);
  static_cast<void>(
      this->setting.scheduler->schedule(Duration{0.01}, Duration{0.01}, [runs] { ++*runs; }));
  this->passTimeUntil([&] { return *runs >= 3; });
}

TYPED_TEST(SchedulerContract, letsGoOfACancelledBlock) {
  const auto held = std::make_shared<int>(0);
  this->setting.scheduler->schedule(Duration{1000}, Duration{1000}, [held] {})();
  EXPECT_EQ(held.use_count(), 1);
}

TYPED_TEST(SchedulerContract, letsABlockScheduleAnother) {
  std::atomic<bool> hasRun = false;
  std::vector<Tempra::Cancel> cancels(2);
  std::binary_semaphore stored(0);
  auto* const scheduler = this->setting.scheduler.get();
  cancels[0] = scheduler->schedule(Duration{0.01}, Duration{1000}, [&, scheduler] {
    cancels[1] = scheduler->schedule(Duration{0}, Duration{1000}, [&hasRun] { hasRun = true; });
    stored.release();
  });
  this->passTimeUntil([&] { return hasRun.load(); });
  stored.acquire();
  for (const auto& cancel : cancels) cancel();
}

TEST(VirtualTime, showsEachBlockItsDueTime) {
  VirtualTime time(Date{1000});
  std::vector<double> seen;
  const auto now = time.provider().now;
  const auto cancel =
      time.schedule(Duration{10}, Duration{2.5}, [&] { seen.push_back(now().secondsSince1970); });
  time.advance(Duration{15});
  EXPECT_EQ(seen, (std::vector<double>{1010, 1012.5, 1015}));
  EXPECT_EQ(time.now(), Date{1015});
  cancel();
}

TEST(VirtualTime, addsStepsUpExactly) {
  VirtualTime time;
  int runs = 0;
  const auto cancel = time.schedule(Duration{1}, Duration{1}, [&runs] { ++runs; });
  for (int step = 0; step < 9; ++step) time.advance(Duration{0.1});
  time.advance(Duration{0.099});
  EXPECT_EQ(runs, 0);
  time.advance(Duration{0.001});
  EXPECT_EQ(runs, 1);
  cancel();
}

TEST(VirtualTime, runsTimersOfOneMomentInTheOrderOfTheirScheduling) {
  VirtualTime time;
  std::vector<int> order;
  const auto first = time.schedule(Duration{2}, Duration{2}, [&order] { order.push_back(1); });
  const auto second = time.schedule(Duration{2}, Duration{1}, [&order] { order.push_back(2); });
  time.advance(Duration{4});
  EXPECT_EQ(order, (std::vector{1, 2, 2, 1, 2}));
  first();
  second();
}

TEST(VirtualTime, countsArmedTimers) {
  VirtualTime time;
  const auto first = time.schedule(Duration{2}, Duration{2}, [] {});
  const auto second = time.schedule(Duration{2}, Duration{2}, [] {});
  time.advance(Duration{3});
  EXPECT_EQ(time.armed(), 2u);
  first();
  EXPECT_EQ(time.armed(), 1u);
  second();
  EXPECT_EQ(time.armed(), 0u);
}

TEST(VirtualTime, armsATimerBeforeItRuns) {
  VirtualTime time;
  std::size_t armed = 0;
  const auto cancel = time.schedule(Duration{1}, Duration{1}, [&] { armed = time.armed(); });
  time.advance(Duration{1});
  EXPECT_EQ(armed, 1u);
  cancel();
}

}  // namespace
}  // namespace kite::test
