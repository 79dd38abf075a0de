#include "Linux/Storage/KVStoreFixture.h"
#include "Support/AppendRows.h"
#include "Support/TextSegment.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>

namespace kite::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class ReturningStoreTests : public KVStoreFixture {
 protected:
  void blockThePlace() {
    std::filesystem::create_directories(folder.parent_path());
    std::ofstream(folder) << "in the way";
  }
};

TEST_F(ReturningStoreTests, savesAllThatItHoldsOnceThereIsAPlace) {
  blockThePlace();
  auto storage = open();
  storage->write("k", {"1"});
  storage->writeNumber("n", 2);
  storage->write("removed", {"3"});
  storage->remove("removed");
  std::filesystem::remove(folder);
  storage->write("other", {"4"});
  storage.reset();
  EXPECT_EQ(savedText("k"), "1");
  EXPECT_EQ(open()->readNumber("n"), 2);
  EXPECT_EQ(savedText("removed"), "absent");
  EXPECT_EQ(savedText("other"), "4");
}

TEST_F(ReturningStoreTests, tellsOnceThatItIsAwayAndOnceThatItIsBack) {
  blockThePlace();
  const auto storage = open();
  for (int minute = 0; minute < 3; ++minute) {
    system.setNow(system.now() + 60);
    storage->write("k", {"1"});
  }
  EXPECT_THAT(system.lines(), ElementsAre(HasSubstr("keeps its values in memory only")));
  system.clearLines();
  std::filesystem::remove(folder);
  storage->write("k", {"2"});
  storage->write("k", {"3"});
  EXPECT_THAT(system.lines(), ElementsAre("[KITE] The key-value store is saved again"));
}

TEST_F(ReturningStoreTests, asksForListsAsWholesWhenItIsBack) {
  blockThePlace();
  auto storage = open();
  appendRows(*storage, "l", {row(1, "1")});
  std::filesystem::remove(folder);
  Larder::ListEdit edit{.replacesAll = false, .removed = {}, .appended = {row(2, "2")}};
  EXPECT_EQ(storage->edit("l", edit), Larder::EditOutcome::listIsGone);
  edit = {.replacesAll = true, .removed = {}, .appended = {row(1, "1"), row(2, "2")}};
  EXPECT_EQ(storage->edit("l", edit), Larder::EditOutcome::saved);
  storage.reset();
  EXPECT_EQ(savedText("l"), "[1,2]");
}

TEST_F(ReturningStoreTests, makesAFolderAnewThatWasRemoved) {
  auto storage = open();
  storage->write("k", {"1"});
  std::filesystem::remove_all(folder);
  storage->write("other", {"2"});
  EXPECT_THAT(system.lines(), IsEmpty());
  storage.reset();
  EXPECT_EQ(savedText("k"), "1");
  EXPECT_EQ(savedText("other"), "2");
}

TEST_F(ReturningStoreTests, makesItsFileAnewThatWasRemovedAlone) {
  auto storage = open();
  storage->write("k", {"1"});
  std::filesystem::remove(folder / "kv.sqlite");
  storage->write("other", {"2"});
  storage.reset();
  EXPECT_EQ(savedText("k"), "1");
  EXPECT_EQ(savedText("other"), "2");
}

TEST_F(ReturningStoreTests, goesOnInMemoryWhenItsFolderCannotBeMadeAnew) {
  const auto storage = open();
  storage->write("k", {"1"});
  std::filesystem::remove_all(folder);
  blockThePlace();
  storage->write("other", {"2"});
  storage->write("other", {"3"});
  EXPECT_EQ(text(storage, "k") + text(storage, "other"), "13");
  EXPECT_THAT(system.lines(), ElementsAre(HasSubstr("cannot be saved, values stay in memory")));
}

TEST_F(ReturningStoreTests, comesBackWhileAnotherThreadEditsAList) {
  auto storage = open();
  std::thread other([&] {
    for (std::uint64_t i = 1; i <= 200; ++i)
      storage->edit("l", {.replacesAll = true, .removed = {}, .appended = {row(i, "1")}});
  });
  for (int i = 0; i < 20; ++i) {
    std::filesystem::remove(folder / "kv.sqlite");
    storage->write("k", {std::to_string(i)});
  }
  other.join();
  storage.reset();
  EXPECT_EQ(savedText("k"), "19");
}

TEST_F(ReturningStoreTests, leavesWhatAnEarlierRunHasLeftToTheNextStart) {
  open()->write("k", {"earlier"});
  std::filesystem::rename(folder, temporary.path() / "kept");
  blockThePlace();
  auto storage = open();
  storage->write("k", {"later"});
  std::filesystem::remove(folder);
  std::filesystem::rename(temporary.path() / "kept", folder);
  storage->write("other", {"1"});
  EXPECT_EQ(text(storage, "k"), "later");
  storage.reset();
  EXPECT_EQ(savedText("k"), "earlier");
  EXPECT_EQ(savedText("other"), "absent");
}

TEST_F(ReturningStoreTests, leavesTheFilesOfWhoeverTookItsPlace) {
  auto storage = open();
  storage->write("k", {"1"});
  std::filesystem::remove_all(folder);
  const auto successor = open();
  successor->write("k", {"2"});
  storage->write("k", {"3"});
  storage.reset();
  EXPECT_TRUE(std::filesystem::exists(folder / "kv.sqlite-wal"));
  EXPECT_TRUE(std::filesystem::exists(folder / "kv.sqlite-shm"));
  successor->write("other", {"4"});
  EXPECT_EQ(text(successor, "k") + text(successor, "other"), "24");
}

}  // namespace
}  // namespace kite::test
