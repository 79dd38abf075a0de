#include <Kite/Linux/LinuxPlatform.h>

#include <gtest/gtest.h>

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

}  // namespace
}  // namespace kite::Linux
