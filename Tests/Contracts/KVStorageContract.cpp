#include <Kite/Linux/LinuxPlatform.h>

#include "Support/AppendRows.h"
#include "Support/FakeSystem.h"
#include "Support/InMemoryKVStorage.h"
#include "Support/Rows.h"
#include "Support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace kite::test {
namespace {

using Larder::EditOutcome;
using Larder::ListEdit;

class InMemory {
 public:
  std::shared_ptr<Larder::KVStorage> storage() const { return _storage; }
  void restart() { _storage->restart(); }

 private:
  std::shared_ptr<InMemoryKVStorage> _storage = std::make_shared<InMemoryKVStorage>();
};

class OnDisk {
 public:
  std::shared_ptr<Larder::KVStorage> storage() const { return _storage; }
  void restart() {
    _storage.reset();
    _storage = open();
  }

 private:
  std::shared_ptr<Larder::KVStorage> open() const {
    return Linux::keyValueStorage(_folder.path(), _system.system());
  }

  TemporaryFolder _folder;
  FakeSystem _system;
  std::shared_ptr<Larder::KVStorage> _storage = open();
};

template <class Setting>
class KVStorageContract : public testing::Test {
 protected:
  Larder::KVStorage& storage() { return *setting.storage(); }
  /// The bytes under `key` now and at the next start; "different" when these are not the same.
  std::string text(const char* key) {
    const auto now = textNow(key);
    setting.restart();
    return textNow(key) == now ? now : "different";
  }
  std::vector<std::uint64_t> ordinals(const char* key) {
    std::vector<std::uint64_t> ordinals;
    if (const auto list = storage().readList(key))
      for (const auto& row : list->rows) ordinals.push_back(row.ordinal);
    return ordinals;
  }
  /// The note of the list under `key` now and at the next start.
  std::string note(const char* key) {
    const auto now = noteNow(key);
    setting.restart();
    return noteNow(key) == now ? now : "different";
  }
  EditOutcome edit(const char* key, const ListEdit& edit) {
    return storage().edit(key, edit, Larder::Durability::survivesKill).outcome;
  }
  bool append(const char* key, std::vector<Larder::Row> rows) {
    return appendRows(storage(), key, std::move(rows));
  }

  Setting setting;

 private:
  std::string textNow(const char* key) {
    const auto value = storage().read(key);
    return value ? value->data().bytes : "absent";
  }
  std::string noteNow(const char* key) {
    const auto list = storage().readList(key);
    return list ? list->note : "absent";
  }
};

using Settings = testing::Types<InMemory, OnDisk>;
TYPED_TEST_SUITE(KVStorageContract, Settings);

TYPED_TEST(KVStorageContract, hasNothingUnderAKeyThatWasNeverWritten) {
  EXPECT_EQ(this->storage().read("k"), nullptr);
  EXPECT_EQ(this->storage().readNumber("k"), std::nullopt);
  EXPECT_EQ(this->storage().readPropertyList("k"), std::nullopt);
}

TYPED_TEST(KVStorageContract, hasAnotherRevisionAfterEveryChange) {
  auto last = this->storage().revision();
  const auto isAnother = [&] { return std::exchange(last, this->storage().revision()) != last; };
  EXPECT_FALSE(isAnother());
  this->storage().write("k", {"v"});
  EXPECT_TRUE(isAnother());
  this->storage().write("k", {"v"});
  EXPECT_TRUE(isAnother());
  this->storage().writeNumber("n", 1);
  EXPECT_TRUE(isAnother());
  this->storage().writePropertyList("d", {"list"});
  EXPECT_TRUE(isAnother());
  this->append("l", {row(1, "1")});
  EXPECT_TRUE(isAnother());
  this->storage().remove("k");
  EXPECT_TRUE(isAnother());
}

TYPED_TEST(KVStorageContract, keepsItsRevisionWhileNothingChanges) {
  this->storage().write("k", {"v"});
  const auto revision = this->storage().revision();
  this->storage().read("k");
  this->storage().readNumber("k");
  this->storage().read("absent");
  EXPECT_EQ(this->storage().revision(), revision);
}

TYPED_TEST(KVStorageContract, keepsAnyBytes) {
  const std::string bytes("\0\xFF\"text\n", 8);
  this->storage().write("k", {bytes});
  EXPECT_EQ(this->text("k"), bytes);
}

TYPED_TEST(KVStorageContract, keepsAnEmptyValue) {
  this->storage().write("k", {""});
  EXPECT_EQ(this->text("k"), "");
}

TYPED_TEST(KVStorageContract, replacesTheValueAtTheNextWrite) {
  this->storage().write("k", {"first"});
  this->storage().write("k", {"second"});
  EXPECT_EQ(this->text("k"), "second");
}

TYPED_TEST(KVStorageContract, keepsKeysApart) {
  this->storage().write("a", {"1"});
  this->storage().write("b", {"2"});
  this->storage().write("", {"3"});
  EXPECT_EQ(this->text("a"), "1");
  EXPECT_EQ(this->text("b"), "2");
  EXPECT_EQ(this->text(""), "3");
}

TYPED_TEST(KVStorageContract, forgetsARemovedKey) {
  this->storage().write("k", {"1"});
  this->storage().remove("k");
  EXPECT_EQ(this->text("k"), "absent");
}

TYPED_TEST(KVStorageContract, ignoresTheRemovalOfAnAbsentKey) {
  this->storage().write("k", {"1"});
  this->storage().remove("other");
  EXPECT_EQ(this->text("k"), "1");
}

TYPED_TEST(KVStorageContract, givesTheSameObjectUntilTheValueChanges) {
  this->storage().write("k", {"1"});
  const auto first = this->storage().read("k");
  EXPECT_EQ(this->storage().read("k"), first);
  this->storage().write("k", {"2"});
  EXPECT_NE(this->storage().read("k"), first);
  EXPECT_EQ(first->data().bytes, "1");
}

TYPED_TEST(KVStorageContract, keepsNumbersExactly) {
  for (const double number : {0.0, -1.5, 0.1, 1e300, std::numeric_limits<double>::infinity()}) {
    this->storage().writeNumber("n", number);
    this->setting.restart();
    EXPECT_EQ(this->storage().readNumber("n"), number);
  }
}

TYPED_TEST(KVStorageContract, keepsANumberThatIsNone) {
  this->storage().writeNumber("n", std::numeric_limits<double>::quiet_NaN());
  this->setting.restart();
  const auto number = this->storage().readNumber("n");
  ASSERT_TRUE(number.has_value());
  EXPECT_NE(*number, *number);
}

TYPED_TEST(KVStorageContract, doesNotMixNativeValuesWithBytes) {
  this->storage().writeNumber("n", 5);
  this->storage().writePropertyList("d", {"list"});
  this->storage().write("b", {"5"});
  EXPECT_EQ(this->storage().read("n"), nullptr);
  EXPECT_EQ(this->storage().read("d"), nullptr);
  EXPECT_EQ(this->storage().readNumber("b"), std::nullopt);
  EXPECT_EQ(this->storage().readNumber("d"), std::nullopt);
  EXPECT_EQ(this->storage().readPropertyList("n"), std::nullopt);
  EXPECT_EQ(this->storage().readPropertyList("b"), std::nullopt);
}

TYPED_TEST(KVStorageContract, aWriteOfAnotherKindReplacesTheValue) {
  this->storage().writeNumber("k", 5);
  this->storage().write("k", {"bytes"});
  EXPECT_EQ(this->storage().readNumber("k"), std::nullopt);
  EXPECT_EQ(this->text("k"), "bytes");
  this->storage().writeNumber("k", 6);
  this->setting.restart();
  EXPECT_EQ(this->storage().read("k"), nullptr);
  EXPECT_EQ(this->storage().readNumber("k"), 6);
}

TYPED_TEST(KVStorageContract, keepsPropertyListsByteForByte) {
  const Data document{std::string("bplist00\xD0\x08\0\xFF", 12)};
  this->storage().writePropertyList("d", document);
  this->setting.restart();
  EXPECT_EQ(this->storage().readPropertyList("d"), document);
}

TYPED_TEST(KVStorageContract, anEditMakesAList) {
  EXPECT_TRUE(this->append("l", {row(1, "{\"a\":1}"), row(2, "2")}));
  EXPECT_EQ(this->text("l"), "[{\"a\":1},2]");
  EXPECT_EQ(this->ordinals("l"), (std::vector<std::uint64_t>{1, 2}));
}

TYPED_TEST(KVStorageContract, anEditThatReplacesAllMakesAnEmptyListOfNothing) {
  EXPECT_EQ(this->edit("l", {.replacesAll = true, .removed = {}, .appended = {}}),
            EditOutcome::saved);
  EXPECT_EQ(this->text("l"), "[]");
  EXPECT_TRUE(this->storage().readList("l"));
}

TYPED_TEST(KVStorageContract, bytesAreNoList) {
  this->storage().write("k", {"[1]"});
  EXPECT_FALSE(this->storage().readList("k"));
}

TYPED_TEST(KVStorageContract, tellsOfAListWithoutReadingIt) {
  auto tagged = row(7, "2");
  tagged.tag = UUID::noop();
  this->append("l", {row(1, "{\"a\":1}"), tagged});
  for (const bool isNextStart : {false, true}) {
    if (isNextStart) this->setting.restart();
    const auto list = this->storage().readList("l");
    ASSERT_TRUE(list);
    EXPECT_EQ(list->next, 8U);
    EXPECT_EQ(readRows(*list), (std::vector<ReadRow>{{1, "{\"a\":1}"}, {7, "2"}}));
    EXPECT_EQ(list->rows[0].tag, UUID());
    EXPECT_EQ(list->rows[1].tag, UUID::noop());
  }
  this->edit("l", {.replacesAll = true, .removed = {}, .appended = {}});
  EXPECT_TRUE(this->storage().readList("l")->rows.empty());
}

TYPED_TEST(KVStorageContract, anEditTellsWhereItsRowsAre) {
  const auto result = this->storage().edit(
      "l", {.replacesAll = true, .removed = {}, .appended = {row(1, "1"), row(2, "{\"a\":1}")}},
      Larder::Durability::survivesKill);
  EXPECT_EQ(readRows({.next = 3, .rows = result.placed}),
            (std::vector<ReadRow>{{1, "1"}, {2, "{\"a\":1}"}}));
}

TYPED_TEST(KVStorageContract, rowsCanBeReadAfterTheListHasLostThem) {
  this->append("l", {row(1, "1"), row(2, "2")});
  const auto list = *this->storage().readList("l");
  this->edit("l", {.replacesAll = false, .removed = {{1, 2}}, .appended = {}});
  this->storage().remove("l");
  EXPECT_EQ(readRows(list), (std::vector<ReadRow>{{1, "1"}, {2, "2"}}));
}

TYPED_TEST(KVStorageContract, tellsNothingOfWhatIsNoList) {
  this->storage().write("k", {"[1]"});
  this->storage().writeNumber("n", 1);
  for (const auto* key : {"k", "n", "absent"}) EXPECT_FALSE(this->storage().readList(key)) << key;
}

TYPED_TEST(KVStorageContract, anEditAppendsBehindWhatStays) {
  this->append("l", {row(1, "1"), row(2, "2")});
  this->append("l", {row(5, "5")});
  EXPECT_EQ(this->text("l"), "[1,2,5]");
}

TYPED_TEST(KVStorageContract, anEditRemovesRangesThatExcludeTheirEnd) {
  this->append("l", {row(1, "1"), row(2, "2"), row(3, "3"), row(4, "4"), row(5, "5")});
  EXPECT_EQ(
      this->edit("l",
                 {.replacesAll = false, .removed = {{1, 3}, {4, 5}}, .appended = {row(6, "6")}}),
      EditOutcome::saved);
  EXPECT_EQ(this->text("l"), "[3,5,6]");
}

TYPED_TEST(KVStorageContract, anEditIgnoresTheRemovalOfWhatIsNotThere) {
  this->append("l", {row(3, "3")});
  EXPECT_EQ(this->edit("l", {.replacesAll = false,
                             .removed = {{0, 3}, {4, std::numeric_limits<std::uint64_t>::max()}},
                             .appended = {}}),
            EditOutcome::saved);
  EXPECT_EQ(this->text("l"), "[3]");
}

TYPED_TEST(KVStorageContract, anEditThatReplacesAllBeginsFromNothing) {
  this->append("l", {row(1, "1"), row(2, "2")});
  EXPECT_EQ(this->edit("l", {.replacesAll = true, .removed = {}, .appended = {row(1, "9")}}),
            EditOutcome::saved);
  EXPECT_EQ(this->text("l"), "[9]");
}

TYPED_TEST(KVStorageContract, aNoteIsSavedWithItsEdit) {
  EXPECT_EQ(this->edit("l", {.replacesAll = true, .removed = {}, .appended = {}, .note = "began"}),
            EditOutcome::saved);
  EXPECT_EQ(this->note("l"), "began");
  EXPECT_EQ(this->edit("l", {.removed = {}, .appended = {row(1, "1")}, .note = "one"}),
            EditOutcome::saved);
  EXPECT_EQ(this->note("l"), "one");
  EXPECT_EQ(this->text("l"), "[1]");
}

TYPED_TEST(KVStorageContract, aNoteAloneIsSaved) {
  this->append("l", {row(1, "1")});
  EXPECT_EQ(this->note("l"), "");
  const std::string bytes("\0\xFFnote", 6);
  EXPECT_EQ(this->edit("l", {.removed = {}, .appended = {}, .note = bytes}), EditOutcome::saved);
  EXPECT_EQ(this->note("l"), bytes);
  EXPECT_EQ(this->text("l"), "[1]");
}

TYPED_TEST(KVStorageContract, anEditWithoutANoteLeavesTheOneBefore) {
  this->edit("l", {.replacesAll = true, .removed = {}, .appended = {row(1, "1")}, .note = "n"});
  this->append("l", {row(2, "2")});
  this->edit("l", {.removed = {{1, 3}}, .appended = {}});
  EXPECT_EQ(this->note("l"), "n");
}

TYPED_TEST(KVStorageContract, aListThatBeginsAnewHasNoNoteOfTheOneBefore) {
  const ListEdit noted{.replacesAll = true, .removed = {}, .appended = {}, .note = "n"};
  this->edit("l", noted);
  this->edit("l", {.replacesAll = true, .removed = {}, .appended = {}});
  EXPECT_EQ(this->note("l"), "");
  this->edit("l", noted);
  this->storage().remove("l");
  this->append("l", {row(1, "1")});
  EXPECT_EQ(this->note("l"), "");
}

TYPED_TEST(KVStorageContract, listsHaveNotesOfTheirOwn) {
  this->edit("a", {.replacesAll = true, .removed = {}, .appended = {}, .note = "1"});
  this->edit("b", {.replacesAll = true, .removed = {}, .appended = {}, .note = "2"});
  EXPECT_EQ(this->note("a") + this->note("b"), "12");
}

TYPED_TEST(KVStorageContract, aNoteOfWhatIsNoListIsNotSaved) {
  const ListEdit noted{.removed = {}, .appended = {}, .note = "n"};
  EXPECT_EQ(this->edit("l", noted), EditOutcome::listIsGone);
  EXPECT_EQ(this->text("l"), "absent");
}

TYPED_TEST(KVStorageContract, anEditOfWhatIsNoListChangesNothing) {
  const ListEdit edit{.replacesAll = false, .removed = {}, .appended = {row(1, "1")}};
  EXPECT_EQ(this->edit("l", edit), EditOutcome::listIsGone);
  EXPECT_EQ(this->text("l"), "absent");
  this->storage().write("l", {"[7,8]"});
  EXPECT_EQ(this->edit("l", edit), EditOutcome::listIsGone);
  EXPECT_EQ(this->text("l"), "[7,8]");
}

TYPED_TEST(KVStorageContract, anEditThatReplacesAllTakesThePlaceOfBytes) {
  this->storage().write("l", {"[7,8]"});
  EXPECT_EQ(this->edit("l", {.replacesAll = true, .removed = {}, .appended = {row(1, "1")}}),
            EditOutcome::saved);
  EXPECT_EQ(this->text("l"), "[1]");
}

TYPED_TEST(KVStorageContract, aWriteReplacesAListWhole) {
  this->append("l", {row(1, "1")});
  this->storage().write("l", {"[2]"});
  EXPECT_EQ(this->text("l"), "[2]");
  EXPECT_FALSE(this->storage().readList("l"));
  EXPECT_TRUE(this->append("l", {row(1, "3")}));
  EXPECT_EQ(this->text("l"), "[3]");
}

TYPED_TEST(KVStorageContract, aRemovedListLeavesNoRows) {
  this->append("l", {row(1, "1")});
  this->storage().remove("l");
  EXPECT_EQ(this->text("l"), "absent");
  this->append("l", {row(2, "2")});
  EXPECT_EQ(this->text("l"), "[2]");
}

TYPED_TEST(KVStorageContract, listsDoNotTouchEachOther) {
  this->append("a", {row(1, "1")});
  this->append("b", {row(1, "2")});
  this->edit("a", {.replacesAll = true, .removed = {}, .appended = {}});
  EXPECT_EQ(this->text("a"), "[]");
  EXPECT_EQ(this->text("b"), "[2]");
}

TYPED_TEST(KVStorageContract, aValueThatWasReadStaysAsItWas) {
  this->append("l", {row(1, "1")});
  const auto before = this->storage().read("l");
  this->append("l", {row(2, "2")});
  EXPECT_EQ(before->data().bytes, "[1]");
}

TYPED_TEST(KVStorageContract, takesWritesFromManyThreads) {
  constexpr int threads = 4, writes = 50;
  std::vector<std::thread> workers;
  for (int worker = 0; worker < threads; ++worker)
    workers.emplace_back([&storage = this->storage(), worker] {
      const auto key = "k" + std::to_string(worker);
      for (int i = 1; i <= writes; ++i) {
        storage.write(key, {std::to_string(i)});
        storage.read("k0");
        storage.writeNumber("n", i);
      }
    });
  for (auto& worker : workers) worker.join();
  for (int worker = 0; worker < threads; ++worker)
    EXPECT_EQ(this->text(std::string("k").append(std::to_string(worker)).c_str()), "50");
}

}  // namespace
}  // namespace kite::test
