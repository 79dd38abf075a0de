#include "Linux/Storage/KVStoreFixture.h"
#include "Linux/Storage/StoreLogs.h"
#include "Support/AppendRows.h"
#include "Support/FullDisk.h"
#include "Support/Rows.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <memory>
#include <string>

namespace kite::test {
namespace {

using Larder::EditOutcome;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

class LogKVStorageTests : public KVStoreFixture {
 protected:
  static bool append(const Storage& storage, std::uint64_t ordinal, const std::string& text) {
    return appendRows(*storage, "l", {row(ordinal, text)});
  }
  /// Who else may do what with a file, in the digits of `chmod`.
  static mode_t modeOf(const std::filesystem::path& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
  }
  std::map<std::string, mode_t> modes() const {
    std::map<std::string, mode_t> modes;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
      modes.emplace(entry.path().filename(), modeOf(entry.path()));
    return modes;
  }
  std::string asInspected(const char* key) const {
    const auto inspector = Linux::inspectStore(folder, Linux::StoreKind::keyValues, false);
    const auto value = inspector ? (*inspector)->storage()->read(key) : nullptr;
    return value ? value->data().bytes : "absent";
  }
  std::string inMemoryBecause(const std::string& reason) const {
    return "[KITE] The key-value store keeps its values in memory only: " + reason;
  }
  /// A file of somebody else's.
  std::filesystem::path elsewhere() const {
    std::filesystem::create_directories(folder);
    std::ofstream(temporary.path() / "elsewhere") << "theirs";
    return temporary.path() / "elsewhere";
  }
  static std::string contents(const std::filesystem::path& file) {
    std::ifstream stream(file);
    return {std::istreambuf_iterator<char>(stream), {}};
  }
};

TEST_F(LogKVStorageTests, keepsItsFoldersAndFilesFromOtherUsers) {
  const auto mask = ::umask(0);
  const auto storage = open();
  storage->write("k", {"1"});
  append(storage, 1, "1");
  ::umask(mask);
  EXPECT_EQ(modeOf(folder.parent_path()), 0700u);
  EXPECT_EQ(modeOf(folder), 0700u);
  EXPECT_EQ(modes(), (std::map<std::string, mode_t>{{"kv.lock", 0600},
                                                    {"kv.rows-1.log", 0600},
                                                    {"kv.state", 0600},
                                                    {"kv.values.log", 0600}}));
}

TEST_F(LogKVStorageTests, closesWhatWasOpenToOthers) {
  append(open(), 1, "1");
  ::chmod(folder.c_str(), 0755);
  for (const auto& [name, mode] : modes()) ::chmod((folder / name).c_str(), 0644);
  const auto storage = open();
  EXPECT_EQ(modeOf(folder), 0700u);
  for (const auto& [name, mode] : modes()) EXPECT_EQ(mode, 0600u) << name;
}

TEST_F(LogKVStorageTests, takesAFolderWithASlashAtItsEnd) {
  Linux::keyValueStorage(folder.string() + "/", system.system())->write("k", {"1"});
  EXPECT_EQ(savedText("k"), "1");
}

TEST_F(LogKVStorageTests, reachesAFolderThroughLinksAboveIt) {
  std::filesystem::create_directories(temporary.path() / "real");
  std::filesystem::create_directory_symlink(temporary.path() / "real", temporary.path() / "link");
  folder = temporary.path() / "link/app";
  open()->write("k", {"1"});
  EXPECT_EQ(savedText("k"), "1");
  EXPECT_THAT(system.lines(), IsEmpty());
}

TEST_F(LogKVStorageTests, refusesLinkedFiles) {
  for (const auto* name : {"kv.values.log", "kv.rows-1.log", "kv.lock"}) {
    const auto theirs = elsewhere();
    std::filesystem::create_symlink(theirs, folder / name);
    const auto storage = open();
    storage->write("k", {"1"});
    EXPECT_EQ(text(storage, "k"), "1");
    EXPECT_EQ(contents(theirs), "theirs");
    EXPECT_THAT(system.lines(),
                ElementsAre(inMemoryBecause((folder / name).string() + " is a symbolic link")));
    std::filesystem::remove_all(folder);
    system.clearLines();
  }
}

TEST_F(LogKVStorageTests, refusesFilesWithASecondName) {
  for (const auto* name : {"kv.values.log", "kv.rows-1.log", "kv.lock"}) {
    const auto theirs = elsewhere();
    std::filesystem::create_hard_link(theirs, folder / name);
    open()->write("k", {"1"});
    EXPECT_EQ(contents(theirs), "theirs");
    EXPECT_THAT(system.lines(), ElementsAre(HasSubstr("is also reachable under another name")));
    std::filesystem::remove_all(folder);
    system.clearLines();
  }
}

TEST_F(LogKVStorageTests, doesNotFollowALinkInPlaceOfAFileThatItMakes) {
  const auto theirs = elsewhere();
  for (const auto* name : {"kv.state", "kv.values.log.new", "kv.rows-1.log.new"})
    std::filesystem::create_symlink(theirs, folder / name);
  const auto storage = open();
  storage->write("k", {"1"});
  EXPECT_TRUE(append(storage, 1, "1"));
  EXPECT_EQ(contents(theirs), "theirs");
  EXPECT_THAT(system.lines(), IsEmpty());
}

TEST_F(LogKVStorageTests, refusesALinkedFolder) {
  std::filesystem::create_directories(temporary.path() / "elsewhere");
  std::filesystem::create_directories(folder.parent_path());
  std::filesystem::create_directory_symlink(temporary.path() / "elsewhere", folder);
  open()->write("k", {"1"});
  EXPECT_TRUE(std::filesystem::is_empty(temporary.path() / "elsewhere"));
  EXPECT_THAT(system.lines(), ElementsAre(StartsWith(inMemoryBecause(folder.string()))));
}

TEST_F(LogKVStorageTests, refusesAFolderOfAnotherUser) {
  if (::geteuid() == 0) {
    std::filesystem::create_directories(folder);
    ASSERT_EQ(::chown(folder.c_str(), 65534, 65534), 0);
  } else {
    folder = "/usr";
  }
  open()->write("k", {"1"});
  EXPECT_FALSE(std::filesystem::exists(folder / "kv.values.log"));
  EXPECT_THAT(system.lines(),
              ElementsAre(inMemoryBecause(folder.string() + " belongs to another user")));
}

TEST_F(LogKVStorageTests, aSecondOwnerKeepsItsValuesInMemoryAndNoLists) {
  const auto first = open();
  first->write("k", {"1"});
  const auto second = open();
  EXPECT_THAT(system.lines(),
              ElementsAre(inMemoryBecause(folder.string() + " is in use by this process already")));
  EXPECT_EQ(second->read("k"), nullptr);
  second->write("k", {"2"});
  EXPECT_EQ(text(second, "k"), "2");
  EXPECT_FALSE(append(second, 1, "1"));
  EXPECT_EQ(second->read("l"), nullptr);
  EXPECT_EQ(asInspected("k"), "1");
  first->write("k", {"3"});
  EXPECT_EQ(asInspected("k"), "3");
}

TEST_F(LogKVStorageTests, aSecondOwnerInAnotherProcessIsToldSo) {
  const auto first = open();
  const auto child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    const auto second = open();
    const auto lines = system.lines();
    ::_exit(lines.size() == 1 && lines.front().ends_with("is in use by another process") ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

TEST_F(LogKVStorageTests, canBeOwnedAgainOnceItsOwnerIsGone) {
  open()->write("k", {"1"});
  EXPECT_EQ(savedText("k"), "1");
  EXPECT_THAT(system.lines(), IsEmpty());
}

TEST_F(LogKVStorageTests, savesEveryChangeBeforeItReturns) {
  const auto storage = open();
  storage->write("k", {"1"});
  EXPECT_EQ(asInspected("k"), "1");
  storage->remove("k");
  EXPECT_EQ(asInspected("k"), "absent");
  append(storage, 1, "1");
  EXPECT_EQ(asInspected("l"), "[1]");
  storage->write("l", {"no list"});
  EXPECT_EQ(asInspected("l"), "no list");
}

TEST_F(LogKVStorageTests, keepsTheElementsOfManyListsApart) {
  {
    const auto storage = open();
    for (unsigned i = 0; i < 20; ++i)
      for (const auto* key : {"a", "b", "c"}) appendRows(*storage, key, {row(i, key)});
    storage->remove("b");
    appendRows(*storage, "d", {row(3, "d")});
  }
  const auto storage = open();
  EXPECT_EQ(storage->readList("a")->rows.size(), 20u);
  EXPECT_EQ(text(storage, "b"), "absent");
  EXPECT_EQ(readRows(*storage->readList("c")).back().text, "c");
  EXPECT_EQ(text(storage, "d"), "[d]");
}

TEST_F(LogKVStorageTests, dropsADamagedElementAndTellsItOnce) {
  {
    const auto storage = open();
    for (const auto* element : {"first", "second", "third"})
      append(storage, storage->readList("l") ? storage->readList("l")->rows.size() : 0, element);
  }
  const auto file = folder / "kv.rows-1.log";
  auto bytes = contents(file);
  bytes[bytes.find("second")] = 'S';
  std::ofstream(file) << bytes;
  const auto storage = open();
  for (int reading = 0; reading < 2; ++reading) {
    EXPECT_EQ(text(storage, "l"), "[first,third]");
    EXPECT_THAT(system.lines(), ElementsAre("[KITE] Damaged elements were dropped from a list in "
                                            "the key-value store: 1"));
  }
}

TEST_F(LogKVStorageTests, setsTheDatabaseOfAnEarlierFormatAside) {
  std::filesystem::create_directories(folder);
  for (const auto* name : {"kv.sqlite", "kv.sqlite-wal", "kv.sqlite-shm"})
    std::ofstream(folder / name) << name;
  open()->write("k", {"1"});
  const auto aside = std::string("kv.sqlite.former-").append(FakeSystem::uuid(1).text());
  for (const auto* part : {"", "-wal", "-shm"})
    EXPECT_EQ(contents(folder / (aside + part)), std::string("kv.sqlite") + part);
  EXPECT_THAT(system.lines(), ElementsAre("[KITE] The key-value store has an earlier format: it "
                                          "was set aside as " +
                                          aside));
  EXPECT_EQ(savedText("k"), "1");
  EXPECT_EQ(system.lines().size(), 1u);
}

TEST_F(LogKVStorageTests, setsAFileAsideThatIsNoLog) {
  std::filesystem::create_directories(folder);
  std::ofstream(folder / "kv.values.log") << std::string(5000, 'x');
  open()->write("k", {"1"});
  EXPECT_THAT(system.lines(), testing::Contains(HasSubstr("values.log belongs to no store")));
  const auto aside = std::string("kv.values.log.foreign-").append(FakeSystem::uuid(2).text());
  EXPECT_EQ(contents(folder / aside), std::string(5000, 'x'));
  system.clearLines();
  EXPECT_EQ(savedText("k"), "1");
  EXPECT_THAT(system.lines(), IsEmpty());
}

TEST_F(LogKVStorageTests, readsANumberOfAnotherSizeAsAbsent) {
  for (const std::size_t size : {7U, 9U, 16U}) {
    {
      const auto store = Linux::StoreLogs::own(folder, Linux::keyValueStoreName(), system.system());
      ASSERT_TRUE(store) << store.error();
      EXPECT_TRUE((*store)->put("n", {Linux::ValueKind::number, std::string(size, '\1')}));
    }
    EXPECT_EQ(open()->readNumber("n"), std::nullopt) << size;
    EXPECT_EQ(system.lines().back(), "[KITE] Damaged values in the key-value store: 1");
  }
}

class LogKVStorageTroubleTests : public LogKVStorageTests {
 protected:
  static std::string key(int number) { return std::string("k").append(std::to_string(number)); }

  Storage storage = open();
};

TEST_F(LogKVStorageTroubleTests, aWriteThatCannotBeSavedCountsForReaders) {
  storage->write("k", {"1"});
  {
    const FullDisk full;
    storage->write("k", {"2"});
  }
  EXPECT_EQ(text(storage, "k"), "2");
  EXPECT_EQ(asInspected("k"), "1");
  {
    const FullDisk full;
    storage->remove("k");
  }
  EXPECT_EQ(text(storage, "k"), "absent");
}

TEST_F(LogKVStorageTroubleTests, savesEverythingWithTheNextWriteToAnyKey) {
  storage->write("removed", {"1"});
  {
    const FullDisk full;
    storage->write("k", {"1"});
    storage->writeNumber("n", 2);
    storage->remove("removed");
  }
  storage->write("other", {"3"});
  storage.reset();
  const auto next = open();
  EXPECT_EQ(text(next, "k") + text(next, "other"), "13");
  EXPECT_EQ(next->readNumber("n"), 2);
  EXPECT_EQ(text(next, "removed"), "absent");
}

TEST_F(LogKVStorageTroubleTests, anEditSavesWhatHadToWait) {
  {
    const FullDisk full;
    storage->write("k", {"1"});
  }
  EXPECT_TRUE(append(storage, 1, "1"));
  EXPECT_EQ(asInspected("k"), "1");
}

TEST_F(LogKVStorageTroubleTests, refusesAnEditThatCannotBeSaved) {
  append(storage, 1, "1");
  const Larder::ListEdit whole{.replacesAll = true, .removed = {}, .appended = {row(1, "3")}};
  bool isAppended = true;
  auto replaced = EditOutcome::saved;
  {
    const FullDisk full;
    isAppended = append(storage, 2, "2");
    replaced = storage->edit("l", whole, Larder::Durability::survivesPowerCut).outcome;
  }
  EXPECT_FALSE(isAppended);
  EXPECT_EQ(replaced, EditOutcome::failed);
  EXPECT_EQ(text(storage, "l"), "[1]");
  EXPECT_TRUE(append(storage, 2, "2"));
  EXPECT_EQ(asInspected("l"), "[1,2]");
}

TEST_F(LogKVStorageTroubleTests, reportsTroubleOnceAMinuteAndItsEnd) {
  const auto begin = system.now();
  for (const double second : {0, 59, 60}) {
    const FullDisk full;
    system.setNow(begin + second);
    storage->write("k", {"1"});
  }
  const auto* line =
      "[KITE] The key-value store cannot be saved, values stay in memory: File too large";
  EXPECT_THAT(system.lines(), ElementsAre(line, line));
  system.clearLines();
  storage->write("k", {"4"});
  storage->write("k", {"5"});
  EXPECT_THAT(system.lines(), ElementsAre("[KITE] The key-value store is saved again"));
}

TEST_F(LogKVStorageTroubleTests, aValueThatIsSavedDoesNotEndTheTroubleOfAList) {
  const auto inTheWay = folder / "kv.rows-1.log.new";
  ASSERT_TRUE(std::filesystem::create_directory(inTheWay));
  const Larder::ListEdit whole{.replacesAll = true, .removed = {}, .appended = {row(1, "1")}};
  const auto edit = [&] {
    return storage->edit("l", whole, Larder::Durability::survivesKill).outcome;
  };
  EXPECT_EQ(edit(), EditOutcome::failed);
  storage->write("k", {"1"});
  EXPECT_THAT(system.lines(), ElementsAre(HasSubstr("cannot be saved")));
  system.clearLines();
  ASSERT_TRUE(std::filesystem::remove(inTheWay));
  EXPECT_EQ(edit(), EditOutcome::saved);
  EXPECT_THAT(system.lines(), ElementsAre("[KITE] The key-value store is saved again"));
}

TEST_F(LogKVStorageTroubleTests, aLimitOfFileSizesFailsTheWriteAndLeavesTheProcessAlive) {
  {
    const FullDisk full(std::filesystem::file_size(folder / "kv.values.log") + 50'000);
    for (int i = 0; i < 20; ++i) storage->write(key(i), {std::string(9000, 'x')});
  }
  EXPECT_THAT(system.lines(), ElementsAre(HasSubstr("cannot be saved")));
  storage->write("k", {"1"});
  storage.reset();
  for (int i = 0; i < 20; ++i) EXPECT_EQ(savedText(key(i).c_str()).size(), 9000u) << i;
  EXPECT_EQ(savedText("k"), "1");
}

TEST_F(LogKVStorageTests, aForkedChildLeavesTheFilesAlone) {
  auto storage = open();
  storage->write("k", {"parent"});
  append(storage, 1, "1");
  const auto child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    storage->write("k", {"child"});
    storage->remove("k");
    const bool isEdited = append(storage, 2, "2");
    const bool isUnchanged = text(storage, "k") == "parent";
    storage.reset();
    ::_exit(!isEdited && isUnchanged ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(append(storage, 2, "two"));
  EXPECT_EQ(asInspected("k") + asInspected("l"), "parent[1,two]");
}

}  // namespace
}  // namespace kite::test
