#include "Linux/Storage/RowLog.h"

#include "Linux/Storage/ModelDisk.h"
#include "Support/TextSegment.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kite::test {
namespace {

using Linux::RowLog;
using testing::ElementsAre;
using testing::IsEmpty;

class TakenRows final : public Larder::ListReader {
 public:
  void begin(std::uint64_t aboveAll) override { next = aboveAll; }
  void take(std::uint64_t ordinal, std::string_view text) override {
    ordinals.push_back(ordinal);
    texts.emplace_back(text.substr(0, 10));
  }
  std::uint64_t next = 0;
  std::vector<std::uint64_t> ordinals;
  std::vector<std::string> texts;
};

class RowLogTests : public testing::Test {
 protected:
  using Outcome = RowLog::Outcome;

  void open(const RowLog::Known& known = {}) {
    damages = {};
    log = std::make_unique<RowLog>(disk, store);
    ASSERT_TRUE(log->load(*disk.names(), known, damages));
    log->mend();
    log->removeDropped();
  }
  Outcome begin(std::string_view key) {
    return log->edit(key, {.replacesAll = true, .removed = {}, .appended = {}});
  }
  Outcome append(std::string_view key, std::uint64_t ordinal, std::string text) {
    return log->edit(
        key, {.replacesAll = false, .removed = {}, .appended = {row(ordinal, std::move(text))}});
  }
  Outcome remove(std::string_view key, Larder::OrdinalRange range) {
    return log->edit(key, {.replacesAll = false, .removed = {range}, .appended = {}});
  }
  TakenRows read(std::string_view key) {
    TakenRows rows;
    std::size_t damaged = 0;
    EXPECT_EQ(log->read(key, rows, damaged), Outcome::done);
    EXPECT_EQ(damaged, 0u);
    return rows;
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
  ModelDisk disk{folder};
  Linux::Damages damages;
  std::unique_ptr<RowLog> log = std::make_unique<RowLog>(disk, store);
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
  const Larder::ListEdit edit{
      .replacesAll = false, .removed = {}, .appended = {row(2, "2"), row(1, "1")}};
  EXPECT_EQ(log->edit("l", edit), Outcome::noList);
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
  remove("l", {1, 2});
  log->removeDropped();
  EXPECT_TRUE(first.expired());
}

TEST_F(RowLogTests, aPowerCutLosesNoEditOfWhichTheFilesWereSynced) {
  begin("l");
  append("l", 0, "first");
  fillSegment("l", 1);
  append("l", 2, "last");
  for (const auto& file : log->takeUnsynced()) EXPECT_TRUE(file->sync());
  append("l", 3, "lost");
  folder.cutPower();
  open();
  EXPECT_THAT(read("l").ordinals, ElementsAre(0, 1, 2));
  EXPECT_TRUE(damages.empty()) << damages.text();
}

TEST_F(RowLogTests, segmentsThatCouldNotBeMovedAreSyncedAllTheSame) {
  begin("l");
  append("l", 0, "kept");
  append("l", 1, "damaged");
  auto& bytes = folder.files.at("rows-1.log")->bytes;
  bytes[bytes.find("damaged")] = 'D';
  TakenRows rows;
  std::size_t damaged = 0;
  log->read("l", rows, damaged);
  ASSERT_EQ(damaged, 1u);
  folder.failAt = folder.changes;  // no segment can be made
  log->mend();
  ASSERT_EQ(append("l", 2, "last"), Outcome::done);
  for (const auto& file : log->takeUnsynced()) EXPECT_TRUE(file->sync());
  folder.cutPower();
  log = std::make_unique<RowLog>(disk, store);
  ASSERT_TRUE(log->load(*disk.names(), {}, damages));
  TakenRows found;
  log->read("l", found, damaged);
  EXPECT_THAT(found.ordinals, ElementsAre(0, 2));
}

}  // namespace
}  // namespace kite::test
