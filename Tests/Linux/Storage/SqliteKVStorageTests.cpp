#include <Kite/Linux/LinuxPlatform.h>

#include "Linux/Storage/StoreFile.h"
#include "Support/AppendRows.h"
#include "Support/FakeSystem.h"
#include "Support/RawDatabase.h"
#include "Support/TemporaryFolder.h"
#include "Support/TextSegment.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kite::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

class SqliteKVStorageTests : public testing::Test {
 protected:
  SqliteKVStorageTests() { system.setNow({1'700'000'000}); }  // 2023-11-14T22:13:20Z

  std::shared_ptr<Larder::KVStorage> open() {
    return Linux::sqliteKVStorage(folder, system.system());
  }
  std::string text(const std::shared_ptr<Larder::KVStorage>& storage, const char* key) {
    const auto value = storage->read(key);
    return value ? value->data().bytes : "absent";
  }
  /// What the next run finds under the key.
  std::string savedText(const char* key) { return text(open(), key); }

  static bool append(Larder::KVStorage& storage, const char* key, std::vector<Larder::Row> rows) {
    return appendRows(storage, key, std::move(rows));
  }
  static mode_t modeOf(const std::filesystem::path& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
  }
  void overwrite(std::size_t place, std::size_t size) {
    std::fstream stream(file, std::ios::in | std::ios::out | std::ios::binary);
    stream.seekp(static_cast<std::streamoff>(place));
    stream << std::string(size, '\xA5');
  }
  std::vector<std::string> setAside() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
      if (entry.path().filename().string().find(".corrupt-") != std::string::npos)
        names.push_back(entry.path().filename());
    return names;
  }

  TemporaryFolder temporary;
  std::filesystem::path folder = temporary.path() / "data/app";
  std::filesystem::path file = folder / "kv.sqlite";
  FakeSystem system;
};

TEST_F(SqliteKVStorageTests, keepsFoldersAndFilesFromOtherUsers) {
  const auto mask = ::umask(0);
  const auto storage = open();
  storage->write("k", {"1"});
  ::umask(mask);
  EXPECT_EQ(modeOf(folder.parent_path()), 0700u);
  EXPECT_EQ(modeOf(folder), 0700u);
  for (const auto* name : {"kv.sqlite", "kv.sqlite-wal", "kv.sqlite-shm", "kv.sqlite.lock"})
    EXPECT_EQ(modeOf(folder / name), 0600u) << name;
}

TEST_F(SqliteKVStorageTests, closesAFolderThatWasOpenToOthers) {
  std::filesystem::create_directories(folder);
  ::chmod(folder.c_str(), 0755);
  open();
  EXPECT_EQ(modeOf(folder), 0700u);
}

TEST_F(SqliteKVStorageTests, takesAFolderWithASlashAtItsEnd) {
  Linux::sqliteKVStorage(folder.string() + "/", system.system())->write("k", {"1"});
  EXPECT_EQ(savedText("k"), "1");
}

TEST_F(SqliteKVStorageTests, refusesALinkedDatabase) {
  std::filesystem::create_directories(folder);
  std::ofstream(temporary.path() / "elsewhere") << "";
  std::filesystem::create_symlink(temporary.path() / "elsewhere", file);
  const auto storage = open();
  storage->write("k", {"1"});
  EXPECT_EQ(text(storage, "k"), "1");
  EXPECT_EQ(std::filesystem::file_size(temporary.path() / "elsewhere"), 0u);
  EXPECT_THAT(system.lines(),
              ElementsAre("[KITE] The key-value store keeps its values in memory only: " +
                          file.string() + " is a symbolic link"));
}

TEST_F(SqliteKVStorageTests, refusesADatabaseWithASecondName) {
  std::filesystem::create_directories(folder);
  std::ofstream(temporary.path() / "elsewhere") << "";
  std::filesystem::create_hard_link(temporary.path() / "elsewhere", file);
  open()->write("k", {"1"});
  EXPECT_EQ(std::filesystem::file_size(temporary.path() / "elsewhere"), 0u);
  EXPECT_THAT(system.lines(), ElementsAre(HasSubstr("is also reachable under another name")));
}

TEST_F(SqliteKVStorageTests, refusesALogWithASecondName) {
  std::filesystem::create_directories(folder);
  std::ofstream(temporary.path() / "elsewhere") << "";
  std::filesystem::create_hard_link(temporary.path() / "elsewhere", folder / "kv.sqlite-wal");
  open()->write("k", {"1"});
  EXPECT_EQ(std::filesystem::file_size(temporary.path() / "elsewhere"), 0u);
  EXPECT_THAT(system.lines(), ElementsAre(HasSubstr("is also reachable under another name")));
}

TEST_F(SqliteKVStorageTests, closesALogThatWasOpenToOthers) {
  std::filesystem::create_directories(folder);
  std::ofstream(folder / "kv.sqlite-wal") << "";
  ::chmod((folder / "kv.sqlite-wal").c_str(), 0644);
  const auto storage = open();
  storage->write("k", {"1"});
  EXPECT_EQ(modeOf(folder / "kv.sqlite-wal"), 0600u);
}

TEST_F(SqliteKVStorageTests, refusesALinkedFolder) {
  std::filesystem::create_directories(temporary.path() / "elsewhere");
  std::filesystem::create_directories(folder.parent_path());
  std::filesystem::create_directory_symlink(temporary.path() / "elsewhere", folder);
  open()->write("k", {"1"});
  EXPECT_TRUE(std::filesystem::is_empty(temporary.path() / "elsewhere"));
  EXPECT_THAT(system.lines(), ElementsAre(HasSubstr("in memory only")));
}

TEST_F(SqliteKVStorageTests, refusesAFolderOfAnotherUser) {
  if (::geteuid() == 0) {
    std::filesystem::create_directories(folder);
    ASSERT_EQ(::chown(folder.c_str(), 65534, 65534), 0);
  } else {
    folder = "/usr";
  }
  open()->write("k", {"1"});
  EXPECT_FALSE(std::filesystem::exists(folder / "kv.sqlite"));
  EXPECT_THAT(system.lines(), ElementsAre("[KITE] The key-value store keeps its values in memory "
                                          "only: " +
                                          folder.string() + " belongs to another user"));
}

TEST_F(SqliteKVStorageTests, reachesAFolderThroughLinksAboveIt) {
  std::filesystem::create_directories(temporary.path() / "real");
  std::filesystem::create_directory_symlink(temporary.path() / "real", temporary.path() / "link");
  folder = temporary.path() / "link/app";
  open()->write("k", {"1"});
  EXPECT_EQ(savedText("k"), "1");
  EXPECT_THAT(system.lines(), IsEmpty());
}

TEST_F(SqliteKVStorageTests, aSecondOwnerWorksInMemory) {
  const auto first = open();
  first->write("k", {"1"});
  const auto second = open();
  EXPECT_THAT(system.lines(),
              ElementsAre("[KITE] The key-value store keeps its values in memory only: " +
                          file.string() + " is in use by this process already"));
  EXPECT_EQ(second->read("k"), nullptr);
  second->write("k", {"2"});
  EXPECT_TRUE(append(*second, "l", {row(1, "1")}));
  EXPECT_EQ(text(second, "l"), "[1]");
  EXPECT_EQ(text(first, "k"), "1");
  first->write("k", {"3"});
  EXPECT_EQ(text(first, "k"), "3");
}

TEST_F(SqliteKVStorageTests, canBeOwnedAgainOnceItsOwnerIsGone) {
  open()->write("k", {"1"});
  EXPECT_EQ(savedText("k"), "1");
  EXPECT_THAT(system.lines(), IsEmpty());
}

TEST_F(SqliteKVStorageTests, savesEveryWriteBeforeItReturns) {
  const auto storage = open();
  storage->write("k", {"1"});
  RawDatabase beside(file);
  EXPECT_EQ(beside.value("SELECT bytes FROM entries WHERE key='k'"), "1");
  storage->remove("k");
  EXPECT_EQ(beside.value("SELECT count(*) FROM entries"), "0");
}

TEST_F(SqliteKVStorageTests, savesAnEditAsRows) {
  const auto storage = open();
  append(*storage, "l", {row(1, "1"), row(2, "2")});
  storage->edit("l", {.replacesAll = false, .removed = {{1, 2}}, .appended = {row(3, "3")}});
  RawDatabase beside(file);
  EXPECT_EQ(beside.value("SELECT group_concat(place || '=' || bytes) FROM list_rows"), "2=2,3=3");
}

/// The last element of a long edit, which looks at the log while the others are on their way.
class Watch final : public Larder::Segment {
 public:
  explicit Watch(std::filesystem::path log) : _log(std::move(log)) {}
  std::size_t size() const override { return 1; }
  void appendTo(std::string& text) const override {
    text += '0';
    sizesSeen.push_back(std::filesystem::file_size(_log));
  }
  mutable std::vector<std::uintmax_t> sizesSeen;

 private:
  std::filesystem::path _log;
};

TEST_F(SqliteKVStorageTests, beginsToWriteALongEditWhenAllOfItIsThere) {
  const auto storage = open();
  append(*storage, "l", {row(1, "1")});
  const auto log = file.string() + "-wal";
  const auto sizeBefore = std::filesystem::file_size(log);
  const auto watch = std::make_shared<const Watch>(log);
  std::vector<Larder::Row> rows;
  for (std::uint64_t i = 2; i < 2000; ++i) rows.push_back(row(i, std::string(4000, '1')));
  rows.push_back({2000, watch});
  ASSERT_TRUE(append(*storage, "l", std::move(rows)));
  EXPECT_THAT(watch->sizesSeen, testing::Each(sizeBefore));
  EXPECT_FALSE(watch->sizesSeen.empty());
  EXPECT_GT(std::filesystem::file_size(log), 2000u * 4000u);
}

TEST_F(SqliteKVStorageTests, usesAWriteAheadLog) {
  open();
  RawDatabase beside(file);
  EXPECT_EQ(beside.value("PRAGMA journal_mode"), "wal");
}

TEST_F(SqliteKVStorageTests, readsADamagedValueAsAbsent) {
  {
    const auto storage = open();
    storage->write("good", {"1"});
    storage->write("bad", {"2"});
    storage->writeNumber("worse", 3);
  }
  RawDatabase(file).execute("UPDATE entries SET bytes=x'39' WHERE key<>'good'");
  const auto storage = open();
  EXPECT_EQ(text(storage, "good"), "1");
  EXPECT_EQ(text(storage, "bad"), "absent");
  EXPECT_EQ(storage->readNumber("worse"), std::nullopt);
  EXPECT_THAT(system.lines(), ElementsAre("[KITE] Damaged values in the key-value store: 2"));
}

TEST_F(SqliteKVStorageTests, readsANumberOfAnotherSizeAsAbsent) {
  for (const std::size_t size : {7U, 9U, 16U}) {
    {
      const auto store = Linux::StoreFile::own(folder, Linux::keyValueStoreName(), system.system());
      ASSERT_TRUE(store) << store.error();
      EXPECT_EQ((*store)->rows().put("n", {Linux::ValueKind::number, std::string(size, '\1')}),
                Linux::Outcome::done);
    }
    EXPECT_EQ(open()->readNumber("n"), std::nullopt) << size;
  }
}

TEST_F(SqliteKVStorageTests, noticesAValueUnderTheWrongKey) {
  {
    const auto storage = open();
    storage->write("a", {"1"});
    storage->write("b", {"2"});
  }
  RawDatabase(file).execute(
      "UPDATE entries SET key=CASE key WHEN 'a' THEN 'c' ELSE 'a' END;"
      "UPDATE entries SET key='b' WHERE key='c'");
  const auto storage = open();
  EXPECT_EQ(text(storage, "a"), "absent");
  EXPECT_EQ(text(storage, "b"), "absent");
}

TEST_F(SqliteKVStorageTests, dropsADamagedElementAndKeepsTheRestOfTheList) {
  append(*open(), "l", {row(1, "1"), row(2, "2"), row(3, "3")});
  RawDatabase(file).execute("UPDATE list_rows SET bytes=x'39' WHERE place=2");
  EXPECT_EQ(savedText("l"), "[1,3]");
  EXPECT_THAT(system.lines(),
              ElementsAre("[KITE] Damaged elements were dropped from a list in the key-value "
                          "store: 1"));
}

TEST_F(SqliteKVStorageTests, noticesElementsInTheWrongPlace) {
  append(*open(), "l", {row(1, "1"), row(2, "2"), row(3, "3")});
  RawDatabase(file).execute(
      "UPDATE list_rows SET place=9 WHERE place=1;"
      "UPDATE list_rows SET place=1 WHERE place=2;"
      "UPDATE list_rows SET place=2 WHERE place=9");
  EXPECT_EQ(savedText("l"), "[3]");
}

TEST_F(SqliteKVStorageTests, findsAListByItsElementsWhenItsEntryIsDamaged) {
  append(*open(), "l", {row(1, "1"), row(2, "2")});
  RawDatabase(file).execute("UPDATE entries SET key='m'");
  const auto storage = open();
  EXPECT_EQ(text(storage, "l"), "[1,2]");
  storage->remove("l");
  EXPECT_EQ(savedText("l"), "absent");
}

TEST_F(SqliteKVStorageTests, keepsTheElementsOfManyListsApart) {
  {
    const auto storage = open();
    for (unsigned i = 0; i < 20; ++i)
      for (const auto* key : {"a", "b", "c"}) append(*storage, key, {row(i, key)});
    storage->remove("b");
    append(*storage, "d", {row(3, "d")});
  }
  const auto storage = open();
  EXPECT_EQ(storage->read("a")->rows()->size(), 20u);
  EXPECT_EQ(text(storage, "b"), "absent");
  EXPECT_EQ(storage->read("c")->rows()->back().text, "c");
  EXPECT_EQ(text(storage, "d"), "[d]");
}

TEST_F(SqliteKVStorageTests, takesNoElementWithAnOrdinalBeyondItsRange) {
  const auto storage = open();
  append(*storage, "l", {row((std::uint64_t{1} << 40) - 1, "1")});
  EXPECT_FALSE(append(*storage, "l", {row(std::uint64_t{1} << 40, "2")}));
  EXPECT_EQ(text(storage, "l"), "[1]");
}

TEST_F(SqliteKVStorageTests, aDroppedElementMakesRoomForAnother) {
  append(*open(), "l", {row(1, "1"), row(2, "2")});
  RawDatabase(file).execute("UPDATE list_rows SET bytes=x'39' WHERE place=2");
  const auto storage = open();
  EXPECT_EQ(text(storage, "l"), "[1]");
  EXPECT_TRUE(append(*storage, "l", {row(2, "new")}));
  EXPECT_EQ(text(storage, "l"), "[1,new]");
}

TEST_F(SqliteKVStorageTests, aListOfDamagedElementsAloneMakesRoomForOthers) {
  append(*open(), "l", {row(1, "1"), row(2, "2")});
  RawDatabase(file).execute("UPDATE list_rows SET bytes=x'39'");
  {
    const auto storage = open();
    EXPECT_EQ(text(storage, "l"), "[]");
    EXPECT_TRUE(append(*storage, "l", {row(1, "new")}));
  }
  EXPECT_EQ(savedText("l"), "[new]");
  RawDatabase(file).execute("UPDATE list_rows SET bytes=x'39'");
  EXPECT_EQ(open()->edit("l", {.replacesAll = true, .removed = {}, .appended = {row(1, "3")}}),
            Larder::EditOutcome::saved);
  EXPECT_EQ(savedText("l"), "[3]");
}

TEST_F(SqliteKVStorageTests, setsAFileAsideThatIsNoDatabase) {
  std::filesystem::create_directories(folder);
  std::ofstream(file) << std::string(5000, 'x');
  open()->write("k", {"1"});
  EXPECT_EQ(savedText("k"), "1");
  EXPECT_THAT(setAside(), ElementsAre("kv.sqlite.corrupt-20231114T221320Z"));
  EXPECT_EQ(std::filesystem::file_size(folder / setAside().front()), 5000u);
  EXPECT_EQ(modeOf(file), 0600u);
  EXPECT_THAT(system.lines(),
              ElementsAre("[KITE] The key-value store is damaged: it was set aside as "
                          "kv.sqlite.corrupt-20231114T221320Z, 0 entries were recovered"));
}

TEST_F(SqliteKVStorageTests, numbersFilesSetAsideInOneSecond) {
  std::filesystem::create_directories(folder);
  for (int round = 0; round < 3; ++round) {
    std::ofstream(file) << std::string(5000, 'x');
    open();
    std::filesystem::remove(file);
  }
  EXPECT_THAT(setAside(), testing::UnorderedElementsAre("kv.sqlite.corrupt-20231114T221320Z",
                                                        "kv.sqlite.corrupt-20231114T221320Z-1",
                                                        "kv.sqlite.corrupt-20231114T221320Z-2"));
}

TEST_F(SqliteKVStorageTests, setsTheDatabaseOfAnotherProgramAside) {
  std::filesystem::create_directories(folder);
  RawDatabase(file).execute("CREATE TABLE theirs(a); INSERT INTO theirs VALUES('kept')");
  open()->write("k", {"1"});
  EXPECT_EQ(savedText("k"), "1");
  ASSERT_EQ(setAside().size(), 1u);
  EXPECT_EQ(RawDatabase(folder / setAside().front()).value("SELECT a FROM theirs"), "kept");
}

TEST_F(SqliteKVStorageTests, setsAStoreOfAnUnknownFormatAsideAndKeepsWhatItKnowsOfIt) {
  open()->write("k", {"1"});
  RawDatabase(file).execute("PRAGMA user_version=2");
  EXPECT_EQ(savedText("k"), "1");
  EXPECT_EQ(setAside().size(), 1u);
}

TEST_F(SqliteKVStorageTests, recoversWhatADamagedFileStillHolds) {
  {
    const auto storage = open();
    storage->write("k", {"1"});
    for (unsigned i = 0; i < 1000; ++i)
      append(*storage, "l", {row(i, '"' + std::string(1000, 'x') + '"')});
  }
  overwrite(std::filesystem::file_size(file) / 2, 8192);
  const auto storage = open();
  const auto list = storage->read("l");
  ASSERT_NE(list, nullptr);
  EXPECT_GT(list->rows()->size(), 900u);
  EXPECT_LT(list->rows()->size(), 1000u);
  EXPECT_EQ(list->rows()->front().ordinal, 0u);
  EXPECT_EQ(list->rows()->back().ordinal, 999u);
  EXPECT_EQ(text(storage, "k"), "1");
  EXPECT_EQ(setAside().size(), 1u);
  EXPECT_TRUE(append(*storage, "l", {row(1000, "1")}));
}

TEST_F(SqliteKVStorageTests, takesNoEditOfAListThatLostRowsToDamage) {
  {
    const auto storage = open();
    for (unsigned i = 0; i < 1000; ++i) append(*storage, "l", {row(i, std::string(1000, '1'))});
  }
  const auto storage = open();
  overwrite(8192, std::filesystem::file_size(file) - 8192);
  Larder::ListEdit edit{
      .replacesAll = false, .removed = {{500, 501}}, .appended = {row(1000, "2")}};
  EXPECT_EQ(storage->edit("l", edit), Larder::EditOutcome::listIsGone);
  EXPECT_EQ(storage->edit("l", edit), Larder::EditOutcome::listIsGone);
  edit.replacesAll = true;
  EXPECT_EQ(storage->edit("l", edit), Larder::EditOutcome::saved);
  edit = {.replacesAll = false, .removed = {}, .appended = {row(1001, "3")}};
  EXPECT_EQ(storage->edit("l", edit), Larder::EditOutcome::saved);
  EXPECT_EQ(text(storage, "l"), "[2,3]");
}

TEST_F(SqliteKVStorageTests, savesWhatMemoryHoldsAnewWhenTheFileIsDamagedLater) {
  {
    const auto storage = open();
    for (unsigned i = 0; i < 1000; ++i) append(*storage, "l", {row(i, std::string(1000, '1'))});
    storage->write("k", {"1"});
  }
  const auto storage = open();
  overwrite(8192, std::filesystem::file_size(file) - 8192);
  EXPECT_EQ(storage->edit("l", {.replacesAll = false, .removed = {{500, 501}}, .appended = {}}),
            Larder::EditOutcome::listIsGone);
  EXPECT_EQ(setAside().size(), 1u);
  EXPECT_TRUE(append(*storage, "l", {row(1000, "2")}));
  storage->write("other", {"3"});
  RawDatabase beside(file);
  EXPECT_EQ(beside.value("SELECT bytes FROM entries WHERE key='k'"), "1");
  EXPECT_EQ(beside.value("SELECT bytes FROM entries WHERE key='other'"), "3");
  EXPECT_EQ(text(storage, "l"), "[2]");
}

class SqliteKVStorageTroubleTests : public SqliteKVStorageTests {
 protected:
  /// Keeps the store from writing, as long as it lives.
  class Blockade {
   public:
    explicit Blockade(const std::filesystem::path& file) : _database(file) {
      _database.execute("BEGIN IMMEDIATE");
    }

   private:
    RawDatabase _database;
  };
  void block() { blockade.emplace(file); }
  void unblock() { blockade.reset(); }

  std::shared_ptr<Larder::KVStorage> storage = open();
  std::optional<Blockade> blockade;
};

TEST_F(SqliteKVStorageTroubleTests, aWriteThatCannotBeSavedCountsForReaders) {
  storage->write("k", {"1"});
  block();
  storage->write("k", {"2"});
  EXPECT_EQ(text(storage, "k"), "2");
  storage->remove("k");
  EXPECT_EQ(text(storage, "k"), "absent");
}

TEST_F(SqliteKVStorageTroubleTests, savesEverythingAtTheNextWriteToAnyKey) {
  storage->write("removed", {"1"});
  block();
  storage->write("k", {"1"});
  storage->writeNumber("n", 2);
  storage->remove("removed");
  unblock();
  storage->write("other", {"3"});
  storage.reset();
  const auto next = open();
  EXPECT_EQ(text(next, "k"), "1");
  EXPECT_EQ(next->readNumber("n"), 2);
  EXPECT_EQ(text(next, "removed"), "absent");
}

TEST_F(SqliteKVStorageTroubleTests, anEditSavesWhatHadToWait) {
  block();
  storage->write("k", {"1"});
  unblock();
  EXPECT_TRUE(append(*storage, "l", {row(1, "1")}));
  storage.reset();
  EXPECT_EQ(savedText("k"), "1");
}

TEST_F(SqliteKVStorageTroubleTests, refusesAnEditThatCannotBeSaved) {
  append(*storage, "l", {row(1, "1")});
  block();
  EXPECT_FALSE(append(*storage, "l", {row(2, "2")}));
  EXPECT_EQ(text(storage, "l"), "[1]");
  unblock();
  EXPECT_TRUE(append(*storage, "l", {row(2, "2")}));
  EXPECT_EQ(text(storage, "l"), "[1,2]");
}

TEST_F(SqliteKVStorageTroubleTests, undoesAnEditThatFailsHalfway) {
  append(*storage, "l", {row(1, "1"), row(2, "2")});
  EXPECT_EQ(
      storage->edit(
          "l", {.replacesAll = false, .removed = {{1, 2}}, .appended = {row(3, "3"), row(2, "4")}}),
      Larder::EditOutcome::failed);
  EXPECT_EQ(text(storage, "l"), "[1,2]");
}

TEST_F(SqliteKVStorageTroubleTests, reportsTroubleOnceAMinuteAndItsEnd) {
  block();
  storage->write("k", {"1"});
  system.setNow({1'700'000'059});
  storage->write("k", {"2"});
  EXPECT_THAT(system.lines(),
              ElementsAre("[KITE] The key-value store cannot be saved, values stay in memory: "
                          "database is locked"));
  system.setNow({1'700'000'060});
  storage->write("k", {"3"});
  EXPECT_EQ(system.lines().size(), 2u);
  system.clearLines();
  unblock();
  storage->write("k", {"4"});
  storage->write("k", {"5"});
  EXPECT_THAT(system.lines(), ElementsAre("[KITE] The key-value store is saved again"));
}

TEST_F(SqliteKVStorageTests, aLimitOfFileSizesFailsTheWriteAndLeavesTheProcessAlive) {
  const auto child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    ::signal(SIGXFSZ, SIG_DFL);
    auto storage = open();
    rlimit limit{};
    ::getrlimit(RLIMIT_FSIZE, &limit);
    const auto unlimited = limit.rlim_cur;
    limit.rlim_cur = std::filesystem::file_size(folder / "kv.sqlite-wal") + 8192;
    ::setrlimit(RLIMIT_FSIZE, &limit);
    for (int i = 0; i < 20; ++i)
      storage->write(std::string("k").append(std::to_string(i)), {std::string(9000, 'x')});
    const bool isReported = !system.lines().empty();
    limit.rlim_cur = unlimited;
    ::setrlimit(RLIMIT_FSIZE, &limit);
    storage->write("k", {"1"});
    storage.reset();
    ::_exit(isReported && savedText("k19").size() == 9000 && savedText("k") == "1" ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

TEST_F(SqliteKVStorageTests, aSecondOwnerInAnotherProcessIsToldSo) {
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

TEST_F(SqliteKVStorageTests, aForkedChildLeavesTheFileAlone) {
  auto storage = open();
  storage->write("k", {"parent"});
  append(*storage, "l", {row(1, "1")});
  const auto child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    storage->write("k", {"child"});
    const bool isEdited = append(*storage, "l", {row(2, "2")});
    const bool isUnchanged = text(storage, "k") == "parent";
    storage.reset();
    ::_exit(!isEdited && isUnchanged ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(std::filesystem::exists(folder / "kv.sqlite-wal"));
  EXPECT_TRUE(append(*storage, "l", {row(2, "two")}));
  storage.reset();
  EXPECT_EQ(savedText("k"), "parent");
  EXPECT_EQ(savedText("l"), "[1,two]");
}

}  // namespace
}  // namespace kite::test
