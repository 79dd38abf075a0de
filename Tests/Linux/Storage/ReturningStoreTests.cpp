#include "Linux/Storage/KVStoreFixture.h"
#include "Support/AppendRows.h"
#include "Support/Rows.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

namespace kite::test {
namespace {

using Larder::EditOutcome;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class ReturningStoreTests : public KVStoreFixture {
 protected:
  void blockThePlace() {
    std::filesystem::create_directories(folder.parent_path());
    std::ofstream(folder) << "in the way";
  }
  static EditOutcome append(const Storage& storage, std::uint64_t ordinal, std::string text) {
    return storage
        ->edit("l",
               {.replacesAll = false, .removed = {}, .appended = {row(ordinal, std::move(text))}},
               Larder::Durability::survivesPowerCut)
        .outcome;
  }
  static EditOutcome replace(const Storage& storage, std::vector<Larder::Row> rows) {
    return storage
        ->edit("l", {.replacesAll = true, .removed = {}, .appended = std::move(rows)},
               Larder::Durability::survivesPowerCut)
        .outcome;
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
  EXPECT_EQ(savedText("k") + savedText("other"), "14");
  EXPECT_EQ(open()->readNumber("n"), 2);
  EXPECT_EQ(savedText("removed"), "absent");
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

TEST_F(ReturningStoreTests, refusesEditsWithoutAPlaceAndAsksForListsAsWholesWhenItIsBack) {
  auto storage = open();
  appendRows(*storage, "l", {row(1, "1")});
  std::filesystem::remove_all(folder);
  blockThePlace();
  EXPECT_EQ(append(storage, 2, "2"), EditOutcome::failed);
  std::filesystem::remove(folder);
  EXPECT_EQ(append(storage, 2, "2"), EditOutcome::listIsGone);
  EXPECT_EQ(replace(storage, {row(1, "1"), row(2, "2")}), EditOutcome::saved);
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
  EXPECT_EQ(savedText("k") + savedText("other"), "12");
}

TEST_F(ReturningStoreTests, makesOneFileAnewThatWasRemoved) {
  for (const auto* name : {"kv.values.log", "kv.rows-1.log"}) {
    std::filesystem::remove_all(folder);
    auto storage = open();
    storage->write("k", {"1"});
    replace(storage, {row(1, "1")});
    std::filesystem::remove(folder / name);
    storage->write("other", {"2"});
    EXPECT_EQ(append(storage, 2, "2"), EditOutcome::listIsGone) << name;
    EXPECT_EQ(replace(storage, {row(1, "1"), row(2, "2")}), EditOutcome::saved) << name;
    storage.reset();
    EXPECT_EQ(savedText("k") + savedText("other") + savedText("l"), "12[1,2]") << name;
  }
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
    for (std::uint64_t i = 1; i <= 200; ++i) replace(storage, {row(i, "1")});
  });
  for (int i = 0; i < 20; ++i) {
    std::filesystem::remove(folder / "kv.values.log");
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
  auto successor = open();
  successor->write("k", {"2"});
  storage->write("k", {"3"});
  EXPECT_EQ(text(storage, "k"), "3");
  storage.reset();
  successor->write("other", {"4"});
  successor.reset();
  EXPECT_EQ(savedText("k") + savedText("other"), "24");
}

}  // namespace
}  // namespace kite::test
