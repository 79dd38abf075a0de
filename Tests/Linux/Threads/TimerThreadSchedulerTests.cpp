#include <Kite/Linux/LinuxPlatform.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <limits>
#include <memory>
#include <optional>
#include <semaphore>
#include <thread>
#include <vector>

namespace kite::Linux {
namespace {

using Clock = std::chrono::steady_clock;
using Tempra::Duration;

TEST(TimerThreadScheduler, endsWithoutWaitingForARunningBlock) {
  struct Handshake {
    std::binary_semaphore begun{0};
    std::binary_semaphore released{0};
    std::binary_semaphore ended{0};
  };
  const auto handshake = std::make_shared<Handshake>();
  auto scheduler = timerThreadScheduler();
  static_cast<void>(scheduler->schedule(Duration{0}, Duration{1000}, [handshake] {
    handshake->begun.release();
    handshake->released.acquire();
    handshake->ended.release();
  }));
  handshake->begun.acquire();
  scheduler.reset();  // would hang here
  handshake->released.release();
  handshake->ended.acquire();
}

TEST(TimerThreadScheduler, cancelDoesNotWaitForARunningBlock) {
  const auto scheduler = timerThreadScheduler();
  std::binary_semaphore begun(0);
  std::binary_semaphore released(0);
  std::binary_semaphore ended(0);
  const auto cancel = scheduler->schedule(Duration{0}, Duration{1000}, [&] {
    begun.release();
    released.acquire();
    ended.release();
  });
  begun.acquire();
  cancel();  // would hang here
  released.release();
  ended.acquire();
}

TEST(TimerThreadScheduler, mayEndWithinABlockOfItsOwn) {
  struct Owner {
    std::shared_ptr<Tempra::Scheduler> scheduler = timerThreadScheduler();
    std::binary_semaphore isOnlyOne{0};
    std::binary_semaphore ended{0};
  };
  const auto owner = std::make_shared<Owner>();
  static_cast<void>(owner->scheduler->schedule(Duration{0}, Duration{0.001}, [owner] {
    owner->isOnlyOne.acquire();
    owner->scheduler.reset();
    owner->ended.release();
  }));
  owner->isOnlyOne.release();
  owner->ended.acquire();
  EXPECT_EQ(owner->scheduler, nullptr);
}

TEST(TimerThreadScheduler, letsGoOfItsBlocksWhenItEnds) {
  const auto held = std::make_shared<int>(0);
  auto scheduler = timerThreadScheduler();
  static_cast<void>(scheduler->schedule(Duration{1000}, Duration{1000}, [held] {}));
  scheduler.reset();
  EXPECT_EQ(held.use_count(), 1);
}

// Counts the runs of a timer; lives as long as the last of them.
struct Runs {
  int count = 0;
  std::binary_semaphore enough{0};

  void add(int wanted) {
    if (++count == wanted) enough.release();
  }
};

TEST(TimerThreadScheduler, runsALateBlockOnceAndGoesOnAtItsPeriod) {
  const auto scheduler = timerThreadScheduler();
  const auto runs = std::make_shared<Runs>();
  const auto begin = Clock::now();
  const auto cancel = scheduler->schedule(Duration{0}, Duration{0.02}, [runs] {
    if (runs->count == 0) std::this_thread::sleep_for(std::chrono::milliseconds(110));
    runs->add(4);
  });
  runs->enough.acquire();
  cancel();
  // Five periods were missed; the run that follows at once stands for all of them.
  EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(150));
}

// On a busy machine a run may come late, but if the time that the block takes were added to the
// period, no two runs would ever begin within that sum.
TEST(TimerThreadScheduler, countsThePeriodFromRunToRunNotFromTheEndOfTheBlock) {
  struct Watch {
    std::optional<Clock::time_point> last;
    Clock::duration shortest = Clock::duration::max();
    int runs = 0;
    bool isOver = false;
    std::binary_semaphore over{0};
  };
  constexpr auto blockTime = std::chrono::milliseconds(9);
  constexpr auto sum = std::chrono::milliseconds(10) + blockTime;
  const auto scheduler = timerThreadScheduler();
  const auto watch = std::make_shared<Watch>();
  const auto cancel = scheduler->schedule(Duration{0}, Duration{0.01}, [watch, blockTime, sum] {
    if (watch->isOver) return;
    const auto now = Clock::now();
    if (watch->last) watch->shortest = std::min(watch->shortest, now - *watch->last);
    watch->last = now;
    watch->isOver = watch->shortest < sum || ++watch->runs == 300;
    if (watch->isOver) return watch->over.release();
    std::this_thread::sleep_for(blockTime);
  });
  watch->over.acquire();
  cancel();
  EXPECT_LT(watch->shortest, sum);
}

TEST(TimerThreadScheduler, takesDelaysThatNoClockCanHold) {
  const auto scheduler = timerThreadScheduler();
  const auto infinite = Duration{std::numeric_limits<double>::infinity()};
  std::binary_semaphore ran(0);
  const auto never = scheduler->schedule(infinite, infinite, [] { FAIL(); });
  const auto once = scheduler->schedule(Duration{-5}, infinite, [&ran] { ran.release(); });
  ran.acquire();
  never();
  once();
}

TEST(TimerThreadScheduler, runsAPeriodOfNothingNoMoreThanOncePerMillisecond) {
  const auto scheduler = timerThreadScheduler();
  const auto runs = std::make_shared<Runs>();
  const auto begin = Clock::now();
  const auto cancel = scheduler->schedule(Duration{0}, Duration{0}, [runs] { runs->add(11); });
  runs->enough.acquire();
  cancel();
  EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(10));
}

TEST(TimerThreadScheduler, isCancelledFromSeveralThreads) {
  const auto scheduler = timerThreadScheduler();
  std::atomic<int> runs = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 3; ++t)
    threads.emplace_back([&] {
      for (int i = 0; i < 50; ++i) {
        const auto cancel = scheduler->schedule(Duration{0}, Duration{0.001}, [&runs] { ++runs; });
        std::this_thread::yield();
        cancel();
      }
    });
  for (auto& thread : threads) thread.join();
  std::binary_semaphore last(0);
  const auto cancel = scheduler->schedule(Duration{0}, Duration{1000}, [&last] { last.release(); });
  last.acquire();  // whatever ran before has ended
  const int runsAtEnd = runs;
  const auto cancelAgain =
      scheduler->schedule(Duration{0.005}, Duration{1000}, [&last] { last.release(); });
  last.acquire();
  EXPECT_EQ(runs, runsAtEnd);
  cancel();
  cancelAgain();
}

}  // namespace
}  // namespace kite::Linux
