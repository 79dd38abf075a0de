#include <Kite/Linux/LinuxPlatform.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <limits>
#include <memory>
#include <optional>
#include <semaphore>
#include <string>
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

/// A timer whose block blocks until it is let go, as one that asks a busy main thread.
class Blocked {
 public:
  explicit Blocked(Tempra::Scheduler& scheduler)
      : _cancel(scheduler.schedule(Duration{0}, Duration{0.001}, [state = _state] {
          if (state->isOver) return;
          ++state->runs;
          state->begun.release();
          state->released.acquire();
        })) {
    _state->begun.acquire();
  }
  Blocked(const Blocked&) = delete;
  Blocked& operator=(const Blocked&) = delete;
  ~Blocked() {
    _cancel();
    _state->isOver = true;
    _state->released.release();
  }
  int runs() const { return _state->runs; }

 private:
  struct State {
    std::atomic<int> runs = 0;
    std::atomic<bool> isOver = false;
    std::binary_semaphore begun{0};
    std::binary_semaphore released{0};
  };
  const std::shared_ptr<State> _state = std::make_shared<State>();
  const Tempra::Cancel _cancel;
};

void awaitRuns(Tempra::Scheduler& scheduler, int count) {
  const auto runs = std::make_shared<Runs>();
  const auto cancel =
      scheduler.schedule(Duration{0}, Duration{0.002}, [runs, count] { runs->add(count); });
  runs->enough.acquire();
  cancel();
}

TEST(TimerThreadScheduler, goesOnWithTheOtherTimersWhileOneBlockBlocks) {
  const auto scheduler = timerThreadScheduler();
  const auto runs = std::make_shared<Runs>();
  const auto mayCount = std::make_shared<std::atomic<bool>>(false);
  const auto cancel = scheduler->schedule(Duration{0}, Duration{0.002}, [mayCount, runs] {
    if (*mayCount) runs->add(1);
  });
  const Blocked blocked(*scheduler);
  *mayCount = true;
  runs->enough.acquire();  // by a timer that was there before
  awaitRuns(*scheduler, 50);
  EXPECT_EQ(blocked.runs(), 1) << "it overlaps itself";
  cancel();
}

TEST(TimerThreadScheduler, goesOnWhileTwoBlocksBlock) {
  const auto scheduler = timerThreadScheduler();
  const Blocked one(*scheduler);
  const Blocked other(*scheduler);
  awaitRuns(*scheduler, 50);
  EXPECT_EQ(one.runs(), 1);
  EXPECT_EQ(other.runs(), 1);
}

TEST(TimerThreadScheduler, catchesUpWhenMoreBlocksBlockThanItHasThreads) {
  const auto scheduler = timerThreadScheduler();
  auto one = std::make_optional<Blocked>(*scheduler);
  const Blocked two(*scheduler);
  const Blocked three(*scheduler);
  const auto runs = std::make_shared<Runs>();
  const auto cancel = scheduler->schedule(Duration{0}, Duration{1000}, [runs] { runs->add(1); });
  EXPECT_FALSE(runs->enough.try_acquire());
  one.reset();
  runs->enough.acquire();
  cancel();
}

TEST(TimerThreadScheduler, mayEndWhileBlocksBlock) {
  auto scheduler = timerThreadScheduler();
  const Blocked one(*scheduler);
  const Blocked other(*scheduler);
  const auto held = std::make_shared<int>(0);
  static_cast<void>(scheduler->schedule(Duration{1000}, Duration{1000}, [held] {}));
  scheduler.reset();
  EXPECT_EQ(held.use_count(), 1);
}

/// How many threads of this process have that name.
long threadsNamed(const std::string& name) {
  long count = 0;
  for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
    std::ifstream file(thread.path() / "comm");
    std::string comm;
    count += std::getline(file, comm) && comm == name ? 1 : 0;
  }
  return count;
}

TEST(TimerThreadScheduler, startsNoHelperWhileNoBlockBlocks) {
  while (threadsNamed("kite.timers") > 0) std::this_thread::yield();  // those of other tests
  const auto scheduler = timerThreadScheduler();
  awaitRuns(*scheduler, 20);
  EXPECT_EQ(threadsNamed("kite.timers"), 1) << "nobody would be held up";
  const auto other = scheduler->schedule(Duration{0}, Duration{0.003}, [] {});
  awaitRuns(*scheduler, 20);
  EXPECT_EQ(threadsNamed("kite.timers"), 2) << "one works, and one stands by";
  {
    const Blocked one(*scheduler);
    const Blocked two(*scheduler);
    awaitRuns(*scheduler, 20);
    EXPECT_EQ(threadsNamed("kite.timers"), 3);
  }
  while (threadsNamed("kite.timers") > 2) awaitRuns(*scheduler, 1);
  other();
}

TEST(TimerThreadScheduler, runsTimersThatAreDueAtAboutOneTimeTogetherAndNoneEarly) {
  const auto scheduler = timerThreadScheduler();
  const auto begin = Clock::now();
  struct Times {
    std::vector<Clock::time_point> all;
    std::counting_semaphore<> ran{0};
  };
  const auto times = std::make_shared<Times>();
  const auto noting = [times] {
    times->all.push_back(Clock::now());
    times->ran.release();
  };
  const auto first = scheduler->schedule(Duration{0.1}, Duration{10}, noting);
  const auto last = scheduler->schedule(Duration{0.109}, Duration{1}, noting);
  times->ran.acquire();
  times->ran.acquire();
  first();
  last();
  for (const auto time : times->all) EXPECT_GE(time - begin, std::chrono::milliseconds(109));
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
