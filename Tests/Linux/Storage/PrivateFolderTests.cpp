#include "Linux/Storage/PrivateFolder.h"

#include "Support/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <fstream>
#include <thread>

namespace kite::Linux {
namespace {

/// Interrupts the thread that made it, again and again, for as long as it lives.
class Interruptions {
 public:
  Interruptions() {
    struct sigaction action {};
    action.sa_handler = [](int) {};  // without SA_RESTART
    sigaction(SIGUSR1, &action, &_previous);
    _thread = std::thread([this, victim = pthread_self()] {
      while (!_isOver) pthread_kill(victim, SIGUSR1);
    });
  }
  Interruptions(const Interruptions&) = delete;
  Interruptions& operator=(const Interruptions&) = delete;
  ~Interruptions() {
    _isOver = true;
    _thread.join();
    sigaction(SIGUSR1, &_previous, nullptr);
  }

 private:
  struct sigaction _previous {};
  std::atomic<bool> _isOver = false;
  std::thread _thread;
};

TEST(PrivateFolderTests, givesUpOnAReadThatIsInterruptedForEver) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  const FileDescriptor reading(ends[0]), writing(ends[1]);
  const Interruptions interruptions;
  EXPECT_EQ(readAll(reading, 1), std::nullopt);
}

TEST(PrivateFolderTests, readsTheBeginningOfALongerFileButNotItAsAWhole) {
  const test::TemporaryFolder temporary;
  const auto name = temporary.path() / "file";
  std::ofstream(name) << "123";
  const auto file = openForReading(name);
  EXPECT_EQ(readBeginning(file, 2), "12");
  EXPECT_EQ(readBeginning(file, 4), "123");
  EXPECT_EQ(readAll(file, 2), std::nullopt);
  EXPECT_EQ(readAll(file, 3), "123");
}

}  // namespace
}  // namespace kite::Linux
