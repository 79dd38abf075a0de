#include "Application/WaysOut.h"

#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>

namespace {
bool isForkedChild = false;
}

// What the stack of a child's main function holds would count as leaked.
extern "C" int __lsan_is_turned_off();
extern "C" int __lsan_is_turned_off() { return isForkedChild ? 1 : 0; }

namespace kite::test {
namespace {

/// What a process told through a pipe, and how it ended.
struct Fate {
  std::string told;
  int status = -1;

  bool wasEndedBy(int signal) const { return WIFSIGNALED(status) && WTERMSIG(status) == signal; }
  bool hasLeftWith(int code) const { return WIFEXITED(status) && WEXITSTATUS(status) == code; }
};

class Work final : public Linux::LastWork {
 public:
  Work(int pipe, std::string word) : _pipe(pipe), _word(std::move(word)) {}
  void doLastWork() override {
    [[maybe_unused]] const auto written = ::write(_pipe, _word.data(), _word.size());
    then();
  }
  std::function<void()> then = [] {};

 private:
  const int _pipe;
  const std::string _word;
};

/// Runs `body(work)` in a process of its own. It has its work until it ends.
Fate fateOf(const std::function<void(const std::shared_ptr<Work>&)>& body) {
  std::array<int, 2> ends{};
  EXPECT_EQ(::pipe(ends.data()), 0);
  const auto child = ::fork();
  if (child == 0) {
    isForkedChild = true;
    ::alarm(20);  // ends a child that hangs
    ::close(ends[0]);
    body(std::make_shared<Work>(ends[1], "work"));
    ::_exit(99);
  }
  ::close(ends[1]);
  Fate fate;
  std::array<char, 64> read{};
  for (ssize_t size; (size = ::read(ends[0], read.data(), read.size())) > 0;)
    fate.told.append(read.data(), static_cast<std::size_t>(size));
  ::close(ends[0]);
  ::waitpid(child, &fate.status, 0);
  return fate;
}

[[noreturn]] void waitForTheEnd() {
  while (true) ::pause();
}

TEST(WaysOutTests, anExitDoesTheWork) {
  const auto fate = fateOf([](const auto& work) {
    Linux::doAtExit(work);
    std::exit(3);
  });
  EXPECT_EQ(fate.told, "work");
  EXPECT_TRUE(fate.hasLeftWith(3));
}

TEST(WaysOutTests, aQuickExitDoesTheWork) {
  const auto fate = fateOf([](const auto& work) {
    Linux::doAtExit(work);
    std::quick_exit(4);
  });
  EXPECT_EQ(fate.told, "work");
  EXPECT_TRUE(fate.hasLeftWith(4));
}

TEST(WaysOutTests, anExitDoesNothingForOwnersThatAreGone) {
  const auto fate = fateOf([](const auto& work) {
    Linux::doAtExit(std::make_shared<Work>(*work));
    std::exit(3);
  });
  EXPECT_EQ(fate.told, "");
  EXPECT_TRUE(fate.hasLeftWith(3));
}

TEST(WaysOutTests, anExitDoesTheWorkOfAllOwners) {
  const auto fate = fateOf([](const auto& work) {
    const auto second = std::make_shared<Work>(*work);
    Linux::doAtExit(work);
    Linux::doAtExit(second);
    std::exit(3);
  });
  EXPECT_EQ(fate.told, "workwork");
}

TEST(WaysOutTests, aSignalDoesTheWorkAndEndsTheProcessAsUsual) {
  for (const int signal : {SIGTERM, SIGINT}) {
    const auto fate = fateOf([signal](const auto& work) {
      Linux::doAtSignals(work);
      ::raise(signal);
      waitForTheEnd();
    });
    EXPECT_EQ(fate.told, "work");
    EXPECT_TRUE(fate.wasEndedBy(signal)) << fate.status;
  }
}

TEST(WaysOutTests, theHostsHandlerComesAfterTheWork) {
  const auto fate = fateOf([](const auto& work) {
    ::signal(SIGTERM, [](int) { ::_exit(7); });
    Linux::doAtSignals(work);
    ::raise(SIGTERM);
    waitForTheEnd();
  });
  EXPECT_EQ(fate.told, "work");
  EXPECT_TRUE(fate.hasLeftWith(7)) << fate.status;
}

TEST(WaysOutTests, anIgnoredSignalStaysIgnored) {
  const auto fate = fateOf([](const auto& work) {
    ::signal(SIGINT, SIG_IGN);
    Linux::doAtSignals(work);
    ::raise(SIGINT);
    ::_exit(5);
  });
  EXPECT_EQ(fate.told, "");
  EXPECT_TRUE(fate.hasLeftWith(5)) << fate.status;
}

TEST(WaysOutTests, aSecondSignalEndsTheProcessAtOnce) {
  for (const int second : {SIGTERM, SIGINT}) {
    const auto fate = fateOf([second](const auto& work) {
      work->then = [second] {
        ::kill(::getpid(), second);
        waitForTheEnd();
      };
      Linux::doAtSignals(work);
      ::raise(SIGTERM);
      waitForTheEnd();
    });
    EXPECT_EQ(fate.told, "work");
    EXPECT_TRUE(fate.wasEndedBy(second)) << fate.status;
  }
}

// The thread sanitizer knows neither threads nor signal handlers in a child of a process that had
// threads when it forked.
#ifndef __SANITIZE_THREAD__
bool isReading(const std::filesystem::path& thread) {
  std::string call;
  std::ifstream(thread / "syscall") >> call;
  return call == std::to_string(SYS_read);
}

/// A thread that starts may hold a lock of the address sanitizer's allocator, which a forked child
/// would wait for in vain. The guard's thread has come to rest when it reads its pipe.
void waitForTheGuard() {
  for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task"))
    while (thread.path().filename() != std::to_string(::getpid()) && !isReading(thread.path()))
      std::this_thread::yield();
}

TEST(WaysOutTests, aForkedChildMayHaveAGuardOfItsOwn) {
  const auto fate = fateOf([](const auto& work) {
    Linux::doAtSignals(std::make_shared<Work>(-1, ""));
    waitForTheGuard();
    const auto child = ::fork();
    if (child == 0) {
      ::alarm(10);  // it has none of its parent's
      Linux::doAtSignals(work);
      ::raise(SIGTERM);
      waitForTheEnd();
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    ::_exit(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM ? 6 : 1);
  });
  EXPECT_EQ(fate.told, "work");
  EXPECT_TRUE(fate.hasLeftWith(6)) << fate.status;
}

TEST(WaysOutTests, aSignalToAForkedChildEndsThatAlone) {
  const auto fate = fateOf([](const auto& work) {
    Linux::doAtSignals(work);
    const auto child = ::fork();
    if (child == 0) {
      ::alarm(10);  // it has none of its parent's
      waitForTheEnd();
    }
    ::kill(child, SIGTERM);
    int status = 0;
    ::waitpid(child, &status, 0);
    ::_exit(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM ? 6 : 1);
  });
  EXPECT_EQ(fate.told, "");
  EXPECT_TRUE(fate.hasLeftWith(6)) << fate.status;
}
#endif

}  // namespace
}  // namespace kite::test
