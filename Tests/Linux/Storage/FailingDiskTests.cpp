#include "Linux/Storage/KVStoreFixture.h"
#include "Support/AppendRows.h"
#include "Support/FailingCalls.h"
#include "Support/RawDatabase.h"
#include "Support/TextSegment.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <string>

namespace kite::test {
namespace {

using testing::IsSubsetOf;
using testing::SizeIs;
using Kind = FailingCalls::Kind;

/// No file of this process may become longer.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t size) {
    ::getrlimit(RLIMIT_FSIZE, &_previous);
    const rlimit limit{size, _previous.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &limit);
  }
  void lift() const { ::setrlimit(RLIMIT_FSIZE, &_previous); }

 private:
  rlimit _previous{};
};

class FailingDiskTests : public KVStoreFixture {
 protected:
  std::string textOnDisk(const std::string& key) {
    return RawDatabase(folder / "kv.sqlite")
        .value("SELECT bytes FROM entries WHERE key='" + key + "'");
  }
  std::set<std::string> files() const {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
      names.insert(entry.path().filename());
    return names;
  }
  void leaveAnEarlierRun() {
    const auto storage = open();
    storage->write("k", {"earlier"});
    for (std::uint64_t i = 1; i <= 3; ++i)
      appendRows(*storage, "l", {row(i, '"' + std::string(9000, 'x') + '"')});
  }
  void expectTheEarlierRun(int failing) {
    const auto storage = open();
    EXPECT_EQ(text(storage, "k"), "earlier") << failing;
    const auto list = storage->read("l");
    ASSERT_TRUE(list) << failing;
    EXPECT_THAT(*list->rows(), SizeIs(3)) << failing;
    EXPECT_THAT(files(),
                IsSubsetOf({"kv.sqlite", "kv.sqlite-wal", "kv.sqlite-shm", "kv.sqlite.lock"}))
        << failing;
  }

  void damage(const char* name) const {
    std::fstream(folder / name, std::ios::in | std::ios::out | std::ios::binary) << '?';
  }
  /// In a process of its own, which has limits of its own.
  template <class Body>
  static bool isTrueInAChild(Body body) {
    const auto child = ::fork();
    if (child == 0) ::_exit(body() ? 0 : 1);
    int status = -1;
    return ::waitpid(child, &status, 0) == child && status == 0;
  }
};

TEST_F(FailingDiskTests, aStoreThatCannotBeReadStaysAsItIs) {
  leaveAnEarlierRun();
  for (const int count : {1, FailingCalls::allThatFollow}) {
    bool haveStruck = true;
    for (int first = 1; haveStruck; ++first) {
      {
        const FailingCalls failing(Kind::read, first, count);
        const auto storage = open();
        storage->read("l");
        haveStruck = FailingCalls::haveStruck();
      }
      expectTheEarlierRun(first);
    }
  }
}

TEST_F(FailingDiskTests, whatIsWrittenAfterAStoreCouldNotBeReadLeavesItAsItIs) {
  leaveAnEarlierRun();
  bool haveStruck = true;
  for (int first = 1; haveStruck; ++first) {
    {
      const FailingCalls failing(Kind::read, first, 1);
      const auto storage = open();
      const auto list = storage->read("l");
      haveStruck = FailingCalls::haveStruck();
      if (!list || list->rows()->size() < 3) {
        appendRows(*storage, "l", {row(9, "9")});
        storage->write("k", {"later"});
        EXPECT_EQ(text(storage, "k") + text(storage, "l"), "later[9]") << first;
      }
    }
    expectTheEarlierRun(first);
  }
}

TEST_F(FailingDiskTests, aLockThatCouldNotBeLetGoOfIsLetGoOfLater) {
  bool haveStruck = true;
  for (int first = 1; haveStruck; ++first) {
    std::filesystem::remove_all(folder);
    const auto storage = open();
    storage->write("k", {"1"});
    // The next write begins the log anew, for which it takes all locks.
    RawDatabase(folder / "kv.sqlite").execute("PRAGMA wal_checkpoint");
    {
      const FailingCalls failing(Kind::lock, first, 1);
      storage->write("k", {"2"});
      haveStruck = FailingCalls::haveStruck();
    }
    storage->write("k", {"3"});
    EXPECT_EQ(textOnDisk("k"), "3") << first;
  }
}

TEST_F(FailingDiskTests, aWriteWithoutLocksGivesUpSoon) {
  const auto storage = open();
  const auto begin = std::chrono::steady_clock::now();
  {
    const FailingCalls failing(Kind::lock, 1, FailingCalls::allThatFollow);
    storage->write("k", {"1"});
  }
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
  EXPECT_EQ(text(storage, "k"), "1");
  storage->write("other", {"2"});
  EXPECT_EQ(textOnDisk("k") + textOnDisk("other"), "12");
}

TEST_F(FailingDiskTests, aDamagedStoreIsSalvagedIntoMemoryUntilTheDiskHasSpace) {
  leaveAnEarlierRun();
  damage("kv.sqlite");
  EXPECT_TRUE(isTrueInAChild([&] {
    const FileSizeLimit limit(50'000);  // enough for new tables, not for the list
    auto storage = open();
    const auto list = storage->read("l");
    const bool isSalvaged = text(storage, "k") == "earlier" && list && list->rows()->size() == 3;
    limit.lift();
    storage->write("other", {"1"});
    const bool isListWanted = storage->edit("l", {}) == Larder::EditOutcome::listIsGone;
    storage.reset();
    return isSalvaged && isListWanted && savedText("k") + savedText("other") == "earlier1";
  }));
}

TEST_F(FailingDiskTests, damagedSecretsAreSalvagedIntoMemoryUntilTheDiskHasSpace) {
  const auto openSecrets = [&] { return Linux::sealedSecretsStorage(folder, system.system()); };
  const std::string secret(30'000, 'x');
  openSecrets()->write("k", {secret});
  damage("secrets.sqlite");
  EXPECT_TRUE(isTrueInAChild([&] {
    const FileSizeLimit limit(50'000);
    auto storage = openSecrets();
    const auto salvaged = storage->read("k");
    limit.lift();
    storage->write("other", {"1"});
    storage.reset();
    const auto saved = openSecrets()->read("k");
    return salvaged && salvaged->data().bytes == secret && saved && saved->data().bytes == secret;
  }));
}

}  // namespace
}  // namespace kite::test
