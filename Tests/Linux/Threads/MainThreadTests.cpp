#include <Kite/Linux/LinuxPlatform.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <semaphore>
#include <stdexcept>
#include <thread>
#include <utility>

namespace kite::Linux {
namespace {

// A main loop, as small as can be.
class Loop {
 public:
  void post(std::function<void()> body) {
    const std::scoped_lock guard(_mutex);
    _bodies.push_back(std::move(body));
    _posted.notify_one();
  }
  void runOne() {
    std::unique_lock guard(_mutex);
    _posted.wait(guard, [this] { return !_bodies.empty(); });
    const auto body = std::exchange(_bodies.front(), {});
    _bodies.pop_front();
    guard.unlock();
    body();
  }

 private:
  std::mutex _mutex;
  std::condition_variable _posted;
  std::deque<std::function<void()>> _bodies;
};

TEST(InlineMainThread, runsBodiesInPlace) {
  const auto thread = inlineMainThread();
  EXPECT_EQ(mainThread(*thread, [] { return std::this_thread::get_id(); }),
            std::this_thread::get_id());
}

TEST(AttachedMainThread, runsABodyInPlaceOnTheThreadThatAttached) {
  const auto thread = attachedMainThread([](std::function<void()>) { FAIL(); });
  EXPECT_EQ(mainThread(*thread, [] { return 42; }), 42);
}

TEST(AttachedMainThread, runsBodiesOfOtherThreadsOnTheLoopWhileTheyWait) {
  Loop loop;
  const auto thread = attachedMainThread([&loop](std::function<void()> body) { loop.post(body); });
  std::thread::id ranOn;
  std::thread caller(
      [&] { ranOn = mainThread(*thread, [] { return std::this_thread::get_id(); }); });
  loop.runOne();
  caller.join();
  EXPECT_EQ(ranOn, std::this_thread::get_id());
}

TEST(AttachedMainThread, runsABodyInPlaceWhenTheLoopDropsIt) {
  const auto thread = attachedMainThread([](const std::function<void()>&) {});
  std::thread::id ranOn;
  std::thread caller(
      [&] { ranOn = mainThread(*thread, [] { return std::this_thread::get_id(); }); });
  const auto callerID = caller.get_id();
  caller.join();
  EXPECT_EQ(ranOn, callerID);
}

TEST(AttachedMainThread, runsABodyInPlaceWhenTheLoopEndsBeforeItsTurn) {
  auto loop = std::make_unique<Loop>();
  std::binary_semaphore posted(0);
  const auto thread = attachedMainThread([&](std::function<void()> body) {
    loop->post(std::move(body));
    posted.release();
  });
  int value = 0;
  std::thread caller([&] { value = mainThread(*thread, [] { return 7; }); });
  posted.acquire();
  loop.reset();
  caller.join();
  EXPECT_EQ(value, 7);
}

TEST(AttachedMainThread, handsABodysExceptionToItsCaller) {
  Loop loop;
  const auto thread = attachedMainThread([&loop](std::function<void()> body) { loop.post(body); });
  bool isThrown = false;
  std::thread caller([&] {
    try {
      thread->runSynchronously([] { throw std::runtime_error("body"); });
    } catch (const std::runtime_error&) {
      isThrown = true;
    }
  });
  loop.runOne();
  caller.join();
  EXPECT_TRUE(isThrown);
}

// Waiting

using std::chrono::milliseconds;

/// A loop that does not run, and its thread: the test's.
class WaitingMainThread : public testing::Test {
 protected:
  Loop loop;
  std::counting_semaphore<> posted{0};
  std::shared_ptr<MainThread> thread = attachedMainThread([this](std::function<void()> body) {
    loop.post(std::move(body));
    posted.release();
  });
  std::atomic<int> runs = 0;
  std::atomic<bool> ranElsewhere = false;
  const std::thread::id home = std::this_thread::get_id();

  std::thread caller(const std::function<void()>& then = [] {}) {
    return std::thread([this, then] {
      thread->runSynchronously([this] {
        ++runs;
        if (std::this_thread::get_id() != home) ranElsewhere = true;
      });
      then();
    });
  }
};

TEST_F(WaitingMainThread, runsBodiesThatWerePostedBeforeAndDuringAWaitWithinIt) {
  auto before = caller();
  posted.acquire();
  std::thread during, last;
  thread->waitFor(
      [&](const std::function<void()>& end) {
        during = caller();
        last = std::thread([end, &before, &during] {
          before.join();
          during.join();
          end();
        });
      },
      std::chrono::hours(1));
  last.join();
  EXPECT_EQ(runs, 2);
  EXPECT_FALSE(ranElsewhere);
}

TEST_F(WaitingMainThread, theLoopDoesNotRunAgainWhatAWaitHasRun) {
  std::thread other;
  thread->waitFor([&](const std::function<void()>& end) { other = caller(end); },
                  std::chrono::hours(1));
  other.join();
  loop.runOne();
  EXPECT_EQ(runs, 1);
}

TEST_F(WaitingMainThread, aWaitDoesNotRunAgainWhatTheLoopHasRun) {
  auto other = caller();
  loop.runOne();
  other.join();
  thread->waitFor([](const std::function<void()>& end) { end(); }, std::chrono::hours(1));
  thread->waitFor([](const std::function<void()>&) {}, milliseconds(1));
  EXPECT_EQ(runs, 1);
}

TEST_F(WaitingMainThread, endsWhenItsTimeIsUp) {
  bool hasBegun = false;
  thread->waitFor([&](const std::function<void()>&) { hasBegun = true; }, milliseconds(5));
  EXPECT_TRUE(hasBegun);
}

TEST_F(WaitingMainThread, aWaitThatTimedOutEndsNoLaterOne) {
  std::function<void()> endOfTheFirst;
  thread->waitFor([&](std::function<void()> end) { endOfTheFirst = std::move(end); },
                  milliseconds(1));
  std::thread other;
  bool wasRunBeforeTheEnd = false;
  thread->waitFor(
      [&](const std::function<void()>& end) {
        endOfTheFirst();
        other = caller([&, end] {
          wasRunBeforeTheEnd = runs == 1;
          end();
        });
      },
      std::chrono::hours(1));
  other.join();
  EXPECT_TRUE(wasRunBeforeTheEnd);
  EXPECT_FALSE(ranElsewhere);
}

TEST_F(WaitingMainThread, anEndThatComesAfterTheWaitIsHarmless) {
  std::function<void()> end;
  thread->waitFor([&](std::function<void()> given) { end = std::move(given); }, milliseconds(1));
  thread.reset();
  end();
}

TEST_F(WaitingMainThread, otherThreadsWaitWithoutServing) {
  std::function<void()> end;
  std::binary_semaphore hasBegun(0);
  std::thread waiting([&] {
    thread->waitFor(
        [&](std::function<void()> given) {
          end = std::move(given);
          hasBegun.release();
        },
        std::chrono::hours(1));
  });
  hasBegun.acquire();
  auto other = caller();
  posted.acquire();
  loop.runOne();
  other.join();
  end();
  waiting.join();
  EXPECT_EQ(runs, 1);
  EXPECT_FALSE(ranElsewhere);
}

TEST(InlineMainThread, waitsForTheEndFromAnotherThreadOrForItsTime) {
  const auto thread = inlineMainThread();
  std::thread other;
  bool isOver = false;
  thread->waitFor(
      [&](const std::function<void()>& end) {
        other = std::thread([&isOver, end] {
          isOver = true;
          end();
        });
      },
      std::chrono::hours(1));
  EXPECT_TRUE(isOver);
  other.join();
  thread->waitFor([](const std::function<void()>&) {}, milliseconds(1));
}

}  // namespace
}  // namespace kite::Linux
