#include <Kite/Platform/System.h>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
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

TEST(SystemLive, readsTheWallClockInSecondsSince1970) {
  const Date now = System::live().now();
  EXPECT_GT(now, Date{1.7e9});
  EXPECT_LT(now, Date{1e11});
  EXPECT_LE(now, System::live().now() + 3600);
}

TEST(SystemLive, readsFractionsOfSeconds) {
  bool hasFraction = false;
  for (int i = 0; i < 100 && !hasFraction; ++i) {
    const double seconds = System::live().now().secondsSince1970;
    hasFraction = seconds != static_cast<double>(static_cast<std::int64_t>(seconds));
  }
  EXPECT_TRUE(hasFraction);
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

}  // namespace
}  // namespace kite::test
