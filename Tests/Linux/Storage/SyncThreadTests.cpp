#include "Linux/Storage/SyncThread.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <optional>
#include <semaphore>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace kite::test {
namespace {

/// What a test and a sync under way wait for; the thread may hold it longer than the test.
struct Handshake {
  std::counting_semaphore<> hasBegun{0};
  std::counting_semaphore<> mayEnd{0};
};

/// A disk of one empty file.
class SlowDisk final : public Linux::Disk {
 public:
  explicit SlowDisk(std::shared_ptr<Handshake> handshake) : _handshake(std::move(handshake)) {}

  std::optional<std::vector<std::string>> names() const override { return {{"file"}}; }
  std::unique_ptr<Linux::DiskFile> open(const std::string&) override {
    return std::make_unique<File>(_handshake);
  }
  std::unique_ptr<Linux::DiskFile> make(const std::string&) override { return nullptr; }
  bool rename(const std::string&, const std::string&) override { return false; }
  bool remove(const std::string&) override { return false; }
  bool sync() override { return true; }
  std::string error() const override { return ""; }

 private:
  class File final : public Linux::DiskFile {
   public:
    explicit File(std::shared_ptr<Handshake> handshake) : _handshake(std::move(handshake)) {}
    std::optional<std::uint64_t> size() const override { return 0; }
    std::optional<std::string> read(std::uint64_t, std::size_t) const override { return ""; }
    bool write(std::uint64_t, std::string_view) override { return true; }
    bool cut(std::uint64_t) override { return false; }
    bool sync() override {
      _handshake->hasBegun.release();
      _handshake->mayEnd.acquire();
      return true;
    }
    bool isLinked() const override { return true; }

   private:
    std::shared_ptr<Handshake> _handshake;
  };

  std::shared_ptr<Handshake> _handshake;
};

class SyncThreadTests : public testing::Test {
 protected:
  void writeAndSyncSoon() {
    file->append("written");
    thread->syncSoon(file);
  }
  void awaitSync() { handshake->hasBegun.acquire(); }
  void finishSync() { handshake->mayEnd.release(); }

  std::shared_ptr<Handshake> handshake = std::make_shared<Handshake>();
  SlowDisk disk{handshake};
  std::shared_ptr<Linux::LogFile> file = Linux::LogFile::open(disk, "file");
  std::optional<Linux::SyncThread> thread{std::in_place};
};

TEST_F(SyncThreadTests, syncsAFileWhileItsWriterGoesOn) {
  writeAndSyncSoon();
  awaitSync();
  finishSync();
}

TEST_F(SyncThreadTests, syncsAgainWhatIsWrittenDuringASync) {
  writeAndSyncSoon();
  awaitSync();
  writeAndSyncSoon();
  finishSync();
  awaitSync();
  finishSync();
}

TEST_F(SyncThreadTests, syncsAFileWhoseOwnerIsGone) {
  thread->syncSoon(std::move(file));
  thread.reset();
  awaitSync();
  finishSync();
}

TEST_F(SyncThreadTests, anEndInAForkedChildWaitsForNoLock) {
  std::atomic<bool> isOver = false;
  std::thread writer([&] {
    while (!isOver) writeAndSyncSoon();
  });
  handshake->mayEnd.release(1000);
  for (int i = 0; i < 30 && !HasFailure(); ++i) {
    const auto child = ::fork();
    if (child == 0) {
      ::alarm(5);
      thread.reset();
      ::_exit(0);
    }
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
  }
  isOver = true;
  writer.join();
}

TEST_F(SyncThreadTests, anEndDoesNotWaitForASyncUnderWay) {
  writeAndSyncSoon();
  awaitSync();
  writeAndSyncSoon();
  thread.reset();
  finishSync();
  awaitSync();
  finishSync();
}

}  // namespace
}  // namespace kite::test
