#include "Linux/Threads/LibraryThread.h"

#include <Kite/Linux/LinuxPlatform.h>

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <memory>
#include <semaphore>
#include <string>

namespace kite::Linux {
namespace {

// The system has no thread to give while this object lives: there is no address space for a stack.
class ThreadFamine {
 public:
  ThreadFamine() {
    pthread_attr_t attributes;
    pthread_getattr_default_np(&attributes);
    pthread_attr_getstacksize(&attributes, &_stackSize);
    set(std::size_t{1} << 46);
  }
  ThreadFamine(const ThreadFamine&) = delete;
  ThreadFamine& operator=(const ThreadFamine&) = delete;
  ~ThreadFamine() { set(_stackSize); }

 private:
  static void set(std::size_t stackSize) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, stackSize);
    pthread_setattr_default_np(&attributes);
  }

  std::size_t _stackSize = 0;
};

TEST(LibraryThread, runsItsBody) {
  std::binary_semaphore ran(0);
  ASSERT_TRUE(startThread("body", [&ran] { ran.release(); }));
  ran.acquire();
}

TEST(LibraryThread, saysWhenThereIsNoThread) {
  const ThreadFamine famine;
  EXPECT_FALSE(startThread("none", [] { FAIL(); }));
}

TEST(LibraryThread, aQueueWithoutAThreadReportsItAndTriesAgainAtTheNextBlock) {
  const auto queue = workerQueue("hungry");
  bool hasRunFirst = false;
  testing::internal::CaptureStderr();
  {
    const ThreadFamine famine;
    queue->run([&hasRunFirst] { hasRunFirst = true; });
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "[KITE] No thread can be started for hungry, its work waits\n");
  std::binary_semaphore done(0);
  queue->run([&done] { done.release(); });
  done.acquire();
  EXPECT_TRUE(hasRunFirst);
}

TEST(LibraryThread, aSchedulerWithoutAThreadReportsItAndTriesAgainAtTheNextTimer) {
  const auto scheduler = timerThreadScheduler();
  std::binary_semaphore ran(0);
  testing::internal::CaptureStderr();
  Tempra::Cancel first;
  {
    const ThreadFamine famine;
    first =
        scheduler->schedule(Tempra::Duration{0}, Tempra::Duration{1000}, [&ran] { ran.release(); });
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "[KITE] No thread can be started for timers, they wait\n");
  const auto second = scheduler->schedule(Tempra::Duration{1000}, Tempra::Duration{1000}, [] {});
  ran.acquire();
  first();
  second();
}

TEST(LibraryThread, aRequestWithoutAThreadFailsOnce) {
  const auto session = curlSession();
  std::string description;
  {
    const ThreadFamine famine;
    session
        ->dataTask({.url = *URL::parse("https://127.0.0.1:1/"), .headerFields = {}, .body = {}},
                   [&description](auto, auto, std::optional<TransportError> error) {
                     description += error ? error->description : "an answer";
                   })
        ->resume();
  }
  EXPECT_EQ(description, "https://127.0.0.1:1: The session's thread cannot be started");
}

}  // namespace
}  // namespace kite::Linux
