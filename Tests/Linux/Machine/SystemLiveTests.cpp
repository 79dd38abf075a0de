#include <Kite/Platform/System.h>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <ctime>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace kite::test {
namespace {

/// Standard error as a pipe that keeps writes apart, for as long as it lives.
class StandardErrorPackets {
 public:
  StandardErrorPackets() {
    if (pipe2(_pipe.data(), O_DIRECT | O_NONBLOCK) != 0) std::abort();
    dup2(_pipe[1], STDERR_FILENO);
  }
  ~StandardErrorPackets() {
    dup2(_original, STDERR_FILENO);
    for (const int file : {_original, _pipe[0], _pipe[1]}) close(file);
  }
  std::vector<std::string> written() const {
    std::vector<std::string> packets;
    std::array<char, 8192> buffer;
    for (ssize_t size; (size = read(_pipe[0], buffer.data(), buffer.size())) > 0;)
      packets.emplace_back(buffer.data(), static_cast<std::size_t>(size));
    return packets;
  }

 private:
  std::array<int, 2> _pipe{};
  int _original = dup(STDERR_FILENO);
};

double wallClock() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

TEST(SystemLive, tellsTheWallClockWithItsFraction) {
  const double before = wallClock();
  const double seconds = System::live().now().secondsSince1970;
  const double after = wallClock();
  EXPECT_GE(seconds, before - 1e-6);
  EXPECT_LE(seconds, after + 1e-6);
}

TEST(SystemLive, drawsDifferentIdentifiersOnAllThreads) {
  std::mutex mutex;
  std::set<UUID> seen;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int draw = 0; draw < 1000; ++draw) {
        const UUID uuid = System::live().randomUUID();
        const std::scoped_lock guard(mutex);
        seen.insert(uuid);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(seen.size(), 4000U);
}

TEST(SystemLive, drawsOtherIdentifiersInForkedChildren) {
  constexpr int children = 2;
  System::live().randomUUID();
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
  std::set<UUID> seen;
  for (int i = 0; i < children; ++i) {
    const auto child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      const UUID drawn = System::live().randomUUID();
      const auto sent = ::write(ends[1], drawn.bytes.data(), drawn.bytes.size());
      ::_exit(sent == static_cast<ssize_t>(drawn.bytes.size()) ? 0 : 1);
    }
    UUID drawn;
    ASSERT_EQ(::read(ends[0], drawn.bytes.data(), drawn.bytes.size()),
              static_cast<ssize_t>(drawn.bytes.size()));
    seen.insert(drawn);
    ASSERT_EQ(::waitpid(child, nullptr, 0), child);
  }
  seen.insert(System::live().randomUUID());
  EXPECT_EQ(seen.size(), children + 1U);
  ::close(ends[0]);
  ::close(ends[1]);
}

TEST(SystemLive, drawsVersionFourIdentifiers) {
  const auto text = System::live().randomUUID().text();
  EXPECT_EQ(text[14], '4');
  EXPECT_NE(std::string_view("89AB").find(text[19]), std::string_view::npos);
}

TEST(SystemLive, printsALineToStandardErrorInOneWrite) {
  const StandardErrorPackets standardError;
  System::live().print("[KITE] first");
  System::live().print("");
  const std::string atomic(4000, 'x');
  System::live().print(atomic);
  EXPECT_EQ(standardError.written(),
            (std::vector<std::string>{"[KITE] first\n", "\n", atomic + "\n"}));
}

TEST(SystemLive, keepsAnyTextOnOneLine) {
  const StandardErrorPackets standardError;
  System::live().print("a\r\nb\tc\x1B[31md\x7F\xC3\xA9");
  EXPECT_EQ(standardError.written(), (std::vector<std::string>{"a  b c [31md \xC3\xA9\n"}));
}

TEST(SystemLive, keepsATextFromTurningItsLineOrMovingTheCursor) {
  const StandardErrorPackets standardError;
  System::live().print(
      "a\xC2\x85\x62\xC2\x9B[31mc\xE2\x80\xA8\x64\xE2\x80\xAE\x65\xE2\x81\xA6\x66");
  System::live().print("\xC2\xA0\xE2\x80\xA7\xE2\x80\xAF\xE2\x81\xA5\xE2\x81\xAA\xE2\x82\xAC\xE2");
  EXPECT_EQ(standardError.written(),
            (std::vector<std::string>{
                "a b [31mc d e f\n",
                "\xC2\xA0\xE2\x80\xA7\xE2\x80\xAF\xE2\x81\xA5\xE2\x81\xAA\xE2\x82\xAC\xE2\n"}));
}

TEST(SystemLive, countsTheForksThatLeadToAProcess) {
  const auto forksFrom = [](std::uint64_t home) { return System::live().forkCount() - home; };
  const auto home = System::live().forkCount();
  const auto child = ::fork();
  if (child == 0) {
    const auto inChild = forksFrom(home);
    const auto grandchild = ::fork();
    if (grandchild == 0) ::_exit(static_cast<int>(forksFrom(home)));
    int status = 0;
    ::waitpid(grandchild, &status, 0);
    ::_exit(inChild == 1 && WEXITSTATUS(status) == 2 ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(forksFrom(home), 0u);
}

}  // namespace
}  // namespace kite::test
