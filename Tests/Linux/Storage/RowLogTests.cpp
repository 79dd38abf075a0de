#include "Linux/Storage/RowLog.h"

#include "Linux/Storage/ModelDisk.h"
#include "Support/Rows.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kite::test {
namespace {

using Linux::RowLog;
using testing::ElementsAre;
using testing::IsEmpty;

/// What a list holds, long texts cut short.
struct TakenRows {
  std::uint64_t next = 0;
  std::vector<std::uint64_t> ordinals = {};
  std::vector<std::string> texts = {};
};

class RowLogTests : public testing::Test {
 protected:
  using Outcome = RowLog::Outcome;

  void open(const RowLog::Known& known = {}) {
    damages = {};
    log = make();
    ASSERT_TRUE(log->load(*disk->names(), known, damages));
    log->mend();
    log->removeDropped();
  }
  std::unique_ptr<RowLog> make() {
    return std::make_unique<RowLog>(disk, store, [this](std::size_t count) { damaged += count; });
  }
  Outcome edit(std::string_view key, const Larder::ListEdit& edit) {
    return log->edit(key, edit, placed);
  }
  Outcome begin(std::string_view key) {
    return edit(key, {.replacesAll = true, .removed = {}, .appended = {}});
  }
  Outcome append(std::string_view key, std::uint64_t ordinal, std::string text) {
    return edit(key,
                {.replacesAll = false, .removed = {}, .appended = {row(ordinal, std::move(text))}});
  }
  Outcome remove(std::string_view key, Larder::OrdinalRange range) {
    return edit(key, {.replacesAll = false, .removed = {range}, .appended = {}});
  }
  Outcome note(std::string_view key, std::string text) {
    return edit(key,
                {.replacesAll = false, .removed = {}, .appended = {}, .note = std::move(text)});
  }
  std::string noteOf(std::string_view key) {
    Larder::SavedList list;
    EXPECT_EQ(log->read(key, list), Outcome::done);
    return list.note;
  }
  TakenRows read(std::string_view key) {
    Larder::SavedList list;
    EXPECT_EQ(log->read(key, list), Outcome::done);
    TakenRows taken{.next = list.next};
    for (const auto& [ordinal, text] : readRows(list)) {
      if (!text) continue;
      taken.ordinals.push_back(ordinal);
      taken.texts.push_back(text->substr(0, 10));
    }
    return taken;
  }
  /// Makes the next edit begin a segment.
  void fillSegment(std::string_view key, std::uint64_t ordinal) {
    ASSERT_EQ(append(key, ordinal, std::string(4 * 1024 * 1024, 'x')), Outcome::done);
  }
  /// Makes a wrong byte of the header of the row with this text.
  void damageHeaderOf(const std::string& text, const std::string& file) {
    auto& bytes = folder.files.at(file)->bytes;
    auto& byte = bytes[bytes.find(text) - 1];
    byte = static_cast<char>(byte ^ 1);
  }

  static constexpr std::uint64_t store = 7;
  ModelFolder folder;
  std::shared_ptr<ModelDisk> disk = std::make_shared<ModelDisk>(folder);
  Linux::Damages damages;
  std::size_t damaged = 0;  // rows that the console was told of
  RowLog::Placed placed;
  std::unique_ptr<RowLog> log = make();
};

TEST_F(RowLogTests, ordinalsThatWereUsedAreNotTakenAgain) {
  begin("l");
  append("l", 5, "5");
  remove("l", {5, 6});
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(append("l", 5, "again"), Outcome::noList);
    EXPECT_EQ(read("l").next, 6u);
    open();
  }
  EXPECT_EQ(append("l", 6, "6"), Outcome::done);
  EXPECT_THAT(read("l").texts, ElementsAre("6"));
}

TEST_F(RowLogTests, ordinalsThatDoNotAscendAreNotTaken) {
  begin("l");
  EXPECT_EQ(
      edit("l", {.replacesAll = false, .removed = {}, .appended = {row(2, "2"), row(1, "1")}}),
      Outcome::noList);
  EXPECT_THAT(read("l").texts, IsEmpty());
}

TEST_F(RowLogTests, aListThatBeginsAnewMayUseAllOrdinals) {
  begin("l");
  append("l", 5, "5");
  begin("l");
  EXPECT_EQ(append("l", 1, "1"), Outcome::done);
  open();
  EXPECT_THAT(read("l").texts, ElementsAre("1"));
}

TEST_F(RowLogTests, aRangeThatGoesBeyondWhatWasUsedRemovesNothingThatComesLater) {
  begin("l");
  append("l", 1, "1");
  remove("l", {0, 100});
  EXPECT_EQ(append("l", 2, "2"), Outcome::done);
  open();
  EXPECT_THAT(read("l").texts, ElementsAre("2"));
}

TEST_F(RowLogTests, rowsThatWereMovedAreReadInTheirOrder) {
  begin("l");
  append("l", 0, "first");
  std::uint64_t last = 1;
  fillSegment("l", last);
  for (; log->firstSegment() == 1 && last < 20; ++last) {
    fillSegment("l", last + 1);
    remove("l", {last, last + 1});
  }
  EXPECT_GT(log->firstSegment(), 1u);
  append("l", last + 1, "last");
  for (int round = 0; round < 2; ++round) {
    EXPECT_THAT(read("l").ordinals, ElementsAre(0, last, last + 1));
    EXPECT_EQ(read("l").texts.front(), "first");
    open({.firstSegment = log->firstSegment()});
    EXPECT_TRUE(damages.empty()) << damages.text();
  }
}

TEST_F(RowLogTests, aDamagedSegmentBetweenOthersIsToldOnce) {
  begin("l");
  append("l", 0, "first");
  fillSegment("l", 1);
  append("l", 2, "lost");
  append("l", 3, "second");
  fillSegment("l", 4);
  append("l", 5, "third");
  damageHeaderOf("lost", "rows-2.log");
  folder.files.erase("rows-2.index");
  open({.firstSegment = 1});
  EXPECT_EQ(damages.text(), "rows-2.log is damaged");
  const RowLog::Known known{.lastEdit = log->lastEdit(), .firstSegment = log->firstSegment()};
  open(known);
  EXPECT_EQ(damages.text(), "");
  EXPECT_THAT(read("l").ordinals, ElementsAre(0, 1, 3, 4, 5));
}

TEST_F(RowLogTests, aListThatEndedInADamagedSegmentStaysEnded) {
  begin("ended");
  append("ended", 1, "1");
  begin("l");
  fillSegment("l", 1);
  append("l", 2, "lost");
  log->end("ended");
  damageHeaderOf("lost", "rows-2.log");
  open();
  open({.firstSegment = log->firstSegment()});
  EXPECT_THAT(log->keys(), ElementsAre("l"));
}

TEST_F(RowLogTests, closesASegmentThatItDrops) {
  begin("l");
  fillSegment("l", 1);
  const std::weak_ptr first = folder.files.at("rows-1.log");
  append("l", 2, "last");
  EXPECT_FALSE(first.expired());
  placed.clear();
  remove("l", {1, 2});
  log->removeDropped();
  EXPECT_TRUE(first.expired());
}

TEST_F(RowLogTests, aPowerCutLosesNoEditOfWhichTheFilesWereSynced) {
  begin("l");
  append("l", 0, "first");
  fillSegment("l", 1);
  append("l", 2, "last");
  for (const auto& file : log->unsynced()) EXPECT_TRUE(file->sync());
  append("l", 3, "lost");
  folder.cutPower();
  open();
  EXPECT_THAT(read("l").ordinals, ElementsAre(0, 1, 2));
  EXPECT_TRUE(damages.empty()) << damages.text();
}

TEST_F(RowLogTests, aDamagedRowIsToldOnceAndCostsNoNeighbour) {
  begin("l");
  append("l", 0, "before");
  append("l", 1, "damaged");
  append("l", 2, "behind");
  auto& bytes = folder.files.at("rows-1.log")->bytes;
  bytes[bytes.find("damaged")] = 'D';
  for (int round = 0; round < 2; ++round) {
    EXPECT_THAT(read("l").ordinals, ElementsAre(0, 2));
    EXPECT_EQ(damaged, 1u);
  }
}

TEST_F(RowLogTests, aSegmentThatCannotBeMovedIsSyncedAllTheSame) {
  begin("l");
  append("l", 0, "kept");
  append("l", 1, "lost");
  append("l", 2, "kept, too");
  damageHeaderOf("lost", "rows-1.log");
  log = make();
  ASSERT_TRUE(log->load(*disk->names(), {}, damages));
  folder.failAt = folder.changes;  // no segment can be made
  log->mend();
  ASSERT_EQ(append("l", 3, "last"), Outcome::done);
  for (const auto& file : log->unsynced()) EXPECT_TRUE(file->sync());
  folder.cutPower();
  log = make();
  ASSERT_TRUE(log->load(*disk->names(), {}, damages));
  EXPECT_THAT(read("l").ordinals, ElementsAre(0, 2, 3));
}

TEST_F(RowLogTests, aFileIsSyncedAgainUntilItCouldBe) {
  begin("l");
  fillSegment("l", 1);
  append("l", 2, "in the next segment");
  const auto both = log->unsynced();
  EXPECT_EQ(both.size(), 2u);
  folder.failAt = folder.changes;
  EXPECT_FALSE(both.front()->sync());
  EXPECT_EQ(log->unsynced(), both);
  for (const auto& file : both) EXPECT_TRUE(file->sync());
  EXPECT_TRUE(log->unsynced().empty());
  append("l", 3, "later");
  EXPECT_EQ(log->unsynced().size(), 1u);
}

TEST_F(RowLogTests, aFileThatIsOnTheMediumIsNotSyncedAgain) {
  begin("l");
  append("l", 1, "row");
  const auto file = log->unsynced().front();
  EXPECT_TRUE(file->sync());
  const auto changes = folder.changes;
  EXPECT_TRUE(file->sync());
  EXPECT_EQ(folder.changes, changes);
}

TEST_F(RowLogTests, theRowsOfASealedSegmentAreFoundByItsIndex) {
  begin("l");
  append("l", 0, "first");
  fillSegment("l", 1);
  append("l", 2, "last");
  ASSERT_TRUE(folder.files.contains("rows-1.index"));
  const auto segment = folder.files.at("rows-1.log")->bytes;
  folder.files.at("rows-1.log")->bytes = std::string(segment.size(), 'x');
  open({.firstSegment = 1});
  EXPECT_TRUE(damages.empty()) << damages.text();
  EXPECT_THAT(read("l").ordinals, ElementsAre(2));
  EXPECT_EQ(damaged, 2u);
  folder.files.at("rows-1.log")->bytes = segment;
  open({.firstSegment = 1});
  EXPECT_THAT(read("l").texts, ElementsAre("first", "xxxxxxxxxx", "last"));
}

TEST_F(RowLogTests, anIndexThatIsWrongAnywhereIsNotUsed) {
  begin("l");
  append("l", 0, "first");
  begin("ended");
  log->end("ended");
  fillSegment("l", 1);
  remove("l", {0, 1});
  const auto index = folder.files.at("rows-1.index")->bytes;
  for (std::size_t i = 0; i < 2 * index.size(); ++i) {
    SCOPED_TRACE(i);
    auto& bytes = folder.files.at("rows-1.index")->bytes;
    bytes = i < index.size() ? index : index.substr(0, i - index.size());
    if (i < index.size()) bytes[i] = static_cast<char>(bytes[i] ^ 1);
    open({.firstSegment = 1});
    EXPECT_TRUE(damages.empty()) << damages.text();
    EXPECT_THAT(log->keys(), ElementsAre("l"));
    ASSERT_THAT(read("l").ordinals, ElementsAre(1));
  }
}

TEST_F(RowLogTests, anIndexWithoutASegmentIsRemoved) {
  begin("l");
  fillSegment("l", 1);
  append("l", 2, "last");
  const auto index = folder.files.at("rows-1.index");
  for (const auto* stray : {"rows-0.index", "rows-2.index", "rows-30.index"})
    folder.files.emplace(stray, std::make_shared<ModelFolder::File>(*index));
  folder.files.erase("rows-2.log");
  open({.firstSegment = 1});
  EXPECT_TRUE(folder.files.contains("rows-1.index"));
  for (const auto* stray : {"rows-0.index", "rows-2.index", "rows-30.index"})
    EXPECT_FALSE(folder.files.contains(stray)) << stray;
  EXPECT_THAT(read("l").ordinals, ElementsAre(1));
}

TEST_F(RowLogTests, anIndexOfAnotherLengthOfItsSegmentIsNotUsed) {
  begin("l");
  append("l", 0, "first");
  fillSegment("l", 1);
  append("l", 2, "last");
  auto& bytes = folder.files.at("rows-1.log")->bytes;
  bytes.resize(bytes.find("xxx") - 60);
  open({.firstSegment = 1});
  EXPECT_EQ(damages.text(), "rows-1.log ends too early");
  EXPECT_THAT(read("l").ordinals, ElementsAre(0, 2));
}

// As a power cut leaves it, when its size reached the medium and its last bytes did not.
TEST_F(RowLogTests, aSegmentThatEndsInZerosEndsTooEarlyAndIsToldOnce) {
  begin("l");
  append("l", 1, "first");
  append("l", 2, "second");
  folder.files.at("rows-1.log")->bytes.append(300, '\0');
  open();
  EXPECT_EQ(damages.text(), "rows-1.log ends too early");
  ASSERT_EQ(append("l", 3, "third"), Outcome::done);
  open({.firstSegment = log->firstSegment()});
  EXPECT_EQ(damages.text(), "");
  EXPECT_THAT(read("l").ordinals, ElementsAre(1, 2, 3));
}

TEST_F(RowLogTests, rowsThatAreMovedTellTheirNewPlaces) {
  begin("l");
  append("l", 0, "first");
  fillSegment("l", 1);
  std::uint64_t last = 1;
  placed.clear();
  for (; log->firstSegment() == 1 && last < 20; ++last) {
    fillSegment("l", last + 1);
    remove("l", {last, last + 1});
  }
  const auto moved = std::ranges::find(placed, 0u, &Larder::SavedRow::ordinal);
  ASSERT_NE(moved, placed.end());
  const auto rows = readRows({.next = 0, .rows = {*moved}});
  EXPECT_EQ(rows, (std::vector<ReadRow>{{0, "first"}}));
}

TEST_F(RowLogTests, aNoteOutlivesTheSegmentThatItWasWrittenTo) {
  begin("l");
  note("l", "noted");
  begin("other");
  note("other", "of the other");
  fillSegment("l", 1);
  append("l", 2, "last");
  remove("l", {1, 2});
  log->removeDropped();
  ASSERT_FALSE(folder.files.contains("rows-1.log"));
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(noteOf("l") + " " + noteOf("other"), "noted of the other");
    open({.firstSegment = log->firstSegment()});
    EXPECT_TRUE(damages.empty()) << damages.text();
  }
}

TEST_F(RowLogTests, aNoteIsFoundByTheIndexOfASealedSegment) {
  begin("l");
  note("l", "noted");
  fillSegment("l", 1);
  ASSERT_TRUE(folder.files.contains("rows-1.index"));
  auto& bytes = folder.files.at("rows-1.log")->bytes;
  bytes = std::string(bytes.size(), 'x');
  open({.firstSegment = 1});
  EXPECT_EQ(noteOf("l"), "noted");
}

TEST_F(RowLogTests, aDamagedNoteCostsThatOfItsEditOnly) {
  begin("l");
  note("l", "first");
  edit("l", {.removed = {}, .appended = {row(1, "1")}, .note = "second"});
  const auto files = folder.contents();
  for (const auto& [copies, found] : {std::pair(1, "second"), std::pair(2, "first")}) {
    SCOPED_TRACE(copies);
    folder.restore(files);
    auto& bytes = folder.files.at("rows-1.log")->bytes;
    for (int copy = 0; copy < copies; ++copy) bytes[bytes.find("second")] = 'S';
    open();
    EXPECT_EQ(damages.text(), "rows-1.log is damaged");
    for (int round = 0; round < 2; ++round) {
      EXPECT_EQ(noteOf("l"), found);
      EXPECT_THAT(read("l").texts, ElementsAre("1"));
      open({.firstSegment = log->firstSegment()});
      EXPECT_TRUE(damages.empty()) << damages.text();
    }
  }
}

TEST_F(RowLogTests, rowsOfADroppedSegmentCanBeReadWhileTheyAreHeld) {
  begin("l");
  append("l", 0, "first");
  fillSegment("l", 1);
  append("l", 2, "last");
  Larder::SavedList held;
  ASSERT_EQ(log->read("l", held), Outcome::done);
  remove("l", {0, 2});
  log->removeDropped();
  EXPECT_FALSE(folder.files.contains("rows-1.log"));
  EXPECT_FALSE(folder.files.contains("rows-1.index"));
  EXPECT_EQ(readRows(held).front().text, "first");
}

}  // namespace
}  // namespace kite::test
