#include "Linux/Storage/KVStoreFixture.h"
#include "Linux/Storage/ModelDisk.h"
#include "Linux/Storage/StoreLogs.h"
#include "Support/AppendRows.h"
#include "Support/FileLease.h"
#include "Support/FullDisk.h"
#include "Support/Rows.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string>

namespace kite::test {
namespace {

using Larder::EditOutcome;
using Linux::StoreLogs;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// A store of an earlier run on a disk whose reads fail.
class FailingReadTests : public testing::Test {
 protected:
  FailingReadTests() {
    const auto logs = open();
    logs->put("k", {Linux::ValueKind::data, "earlier"});
    Linux::RowLog::Placed placed;
    logs->loadRows();
    logs->edit("l", {.replacesAll = true, .removed = {}, .appended = {row(1, "1"), row(2, "2")}},
               placed);
    logs->edit("l", {.replacesAll = false, .removed = {{1, 2}}, .appended = {row(3, "3")}}, placed);
  }
  std::unique_ptr<StoreLogs> open() {
    auto logs = StoreLogs::own(std::make_shared<ModelDisk>(folder), "store", system.system());
    return logs ? *std::move(logs) : nullptr;
  }
  static std::string contentsOf(StoreLogs& logs) {
    std::string text;
    for (const auto& [key, value] : logs.values())
      if (value.kind == Linux::ValueKind::data) text += value.bytes;
    Larder::SavedList list;
    if (!logs.loadRows() || logs.readList("l", list) != Linux::RowLog::Outcome::done)
      return "unreadable";
    text += " ";
    for (const auto& row : readRows(list)) text += row.text.value_or("damaged");
    return text;
  }

  ModelFolder folder;
  FakeSystem system;
};

TEST_F(FailingReadTests, areNeverTakenForDamage) {
  const auto files = folder.contents();
  for (const int count : {1, ModelFolder::never}) {
    bool hasFailed = true;
    for (int read = 0; hasFailed && !HasFailure(); ++read) {
      SCOPED_TRACE(read);
      folder.restore(files);
      folder.failReads(read, count);
      if (const auto logs = open()) {
        folder.failReads(ModelFolder::never, 0);
        EXPECT_EQ(contentsOf(*logs), "earlier 23");
      }
      hasFailed = folder.haveReadsFailed();
      folder.failReads(ModelFolder::never, 0);
      EXPECT_EQ(contentsOf(*open()), "earlier 23");
      EXPECT_THAT(system.lines(), IsEmpty());
    }
  }
}

class FailingDiskTests : public KVStoreFixture {
 protected:
  void leaveAnEarlierRun() {
    const auto storage = open();
    storage->write("k", {"earlier"});
    appendRows(*storage, "l", {row(1, "1"), row(2, "2")});
  }
  void expectTheEarlierRun() {
    system.clearLines();
    const auto storage = open();
    EXPECT_EQ(text(storage, "k") + text(storage, "l"), "earlier[1,2]");
    EXPECT_THAT(system.lines(), IsEmpty());
  }
};

TEST_F(FailingDiskTests, whatIsWrittenAfterAStoreCouldNotBeReadLeavesItAsItIs) {
  leaveAnEarlierRun();
  for (const auto* name : {"kv.values.log", "kv.rows-1.log", "kv.lock"}) {
    system.clearLines();
    Storage storage;
    {
      const FileLease lease(folder / name);
      ASSERT_TRUE(lease.isHeld());
      storage = open();
      EXPECT_THAT(system.lines(), ElementsAre(HasSubstr("keeps its values in memory only")))
          << name;
      storage->write("k", {"later"});
      EXPECT_FALSE(appendRows(*storage, "l", {row(9, "9")}));
    }
    storage->write("k", {"later"});
    EXPECT_FALSE(appendRows(*storage, "l", {row(9, "9")}));
    EXPECT_EQ(text(storage, "k") + text(storage, "l"), "laterabsent") << name;
    storage.reset();
    expectTheEarlierRun();
  }
}

TEST_F(FailingDiskTests, whatIsWrittenAfterAListCouldNotBeReadLeavesItAsItIs) {
  leaveAnEarlierRun();
  const auto file = folder / "kv.rows-1.log";
  auto storage = open();
  std::filesystem::rename(file, temporary.path() / "kept");
  std::filesystem::create_directory(file);
  EXPECT_EQ(storage->read("l"), nullptr);
  EXPECT_THAT(system.lines(), ElementsAre(HasSubstr("is not a plain file")));
  EXPECT_EQ(text(storage, "k"), "earlier");
  storage->write("k", {"later"});
  std::filesystem::remove(file);
  std::filesystem::rename(temporary.path() / "kept", file);
  storage->write("k", {"later"});
  EXPECT_FALSE(appendRows(*storage, "l", {row(9, "9")}));
  storage.reset();
  expectTheEarlierRun();
}

TEST_F(FailingDiskTests, aDamagedStoreIsReadAllTheSameWhenTheDiskIsFull) {
  leaveAnEarlierRun();
  for (const auto* name : {"kv.values.log", "kv.rows-1.log"})
    std::fstream(folder / name, std::ios::in | std::ios::out | std::ios::binary) << '?';
  Storage storage;
  {
    const FullDisk full;
    storage = open();
  }
  EXPECT_EQ(text(storage, "k") + text(storage, "l"), "earlier[1,2]");
  storage->write("other", {"1"});
  EXPECT_TRUE(appendRows(*storage, "l", {row(3, "3")}));
  storage.reset();
  storage = open();
  EXPECT_EQ(text(storage, "k") + text(storage, "other") + text(storage, "l"), "earlier1[1,2,3]");
}

TEST_F(FailingDiskTests, damagedSecretsAreReadAllTheSameWhenTheDiskIsFull) {
  const auto openSecrets = [&] { return Linux::sealedSecretsStorage(folder, system.system()); };
  openSecrets()->write("k", {"secret"});
  std::fstream(folder / "secrets.values.log", std::ios::in | std::ios::out | std::ios::binary)
      << '?';
  std::shared_ptr<Larder::SecretsStorage> storage;
  {
    const FullDisk full;
    storage = openSecrets();
  }
  EXPECT_EQ(storage->read("k")->data().bytes, "secret");
  storage->write("other", {"1"});
  storage.reset();
  storage = openSecrets();
  EXPECT_EQ(storage->read("k")->data().bytes + storage->read("other")->data().bytes, "secret1");
}

}  // namespace
}  // namespace kite::test
