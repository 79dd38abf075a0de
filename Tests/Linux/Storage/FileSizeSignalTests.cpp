#include "Linux/Storage/FileSizeSignal.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace kite::Linux {
namespace {

bool isIn(const sigset_t& signals) { return sigismember(&signals, SIGXFSZ) == 1; }

bool isBlocked() {
  sigset_t blocked;
  pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
  return isIn(blocked);
}

bool isPending() {
  sigset_t pending;
  sigpending(&pending);
  return isIn(pending);
}

void writeBeyondTheLimit() {
  rlimit usual{};
  getrlimit(RLIMIT_FSIZE, &usual);
  const rlimit none{.rlim_cur = 0, .rlim_max = usual.rlim_max};
  setrlimit(RLIMIT_FSIZE, &none);
  if (::write(fileno(std::tmpfile()), "x", 1) != -1) std::exit(1);
  setrlimit(RLIMIT_FSIZE, &usual);  // the end of the process may write
}

TEST(FileSizeSignalTest, isBlockedForAsLongAsTheGuardLives) {
  ASSERT_FALSE(isBlocked());
  {
    const WithoutFileSizeSignal quiet;
    EXPECT_TRUE(isBlocked());
    const WithoutFileSizeSignal nested;
  }
  EXPECT_FALSE(isBlocked());
}

TEST(FileSizeSignalDeathTest, isTakenBackWhenItWasTheGuards) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto surviveAWrite = [] {
    std::signal(SIGXFSZ, SIG_DFL);
    {
      const WithoutFileSizeSignal quiet;
      writeBeyondTheLimit();
    }
    std::exit(isPending() ? 1 : 0);
  };
  EXPECT_EXIT(surviveAWrite(), testing::ExitedWithCode(0), "");
}

TEST(FileSizeSignalTest, staysPendingWhenItWasTheHosts) {
  sigset_t signal, previous;
  sigemptyset(&signal);
  sigaddset(&signal, SIGXFSZ);
  pthread_sigmask(SIG_BLOCK, &signal, &previous);
  pthread_kill(pthread_self(), SIGXFSZ);
  { const WithoutFileSizeSignal quiet; }
  EXPECT_TRUE(isPending());
  const timespec atOnce{};
  sigtimedwait(&signal, nullptr, &atOnce);
  pthread_sigmask(SIG_SETMASK, &previous, nullptr);
}

}  // namespace
}  // namespace kite::Linux
