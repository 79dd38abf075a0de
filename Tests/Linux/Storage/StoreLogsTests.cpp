#include "Linux/Storage/StoreLogs.h"

#include "Linux/Storage/ModelDisk.h"
#include "Support/FakeSystem.h"
#include "Support/Rows.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kite::test {
namespace {

using Linux::StoreLogs;
using Linux::ValueKind;
using testing::AnyOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSubsetOf;

constexpr const char* listKey = "l";

/// What a store holds, as its reader sees it.
struct Contents {
  std::map<std::string, std::string> values;
  std::optional<std::vector<std::string>> rows;
  std::string note;  // of the list

  friend bool operator==(const Contents&, const Contents&) = default;
};

void PrintTo(const Contents& contents, std::ostream* out) {
  for (const auto& [key, value] : contents.values) *out << key << "=" << value.substr(0, 20) << " ";
  if (!contents.rows) *out << "no list";
  for (const auto& row : contents.rows.value_or(std::vector<std::string>()))
    *out << row.substr(0, 20) << ",";
  *out << " note: " << contents.note;
}

Contents contentsOf(StoreLogs& logs) {
  Contents contents;
  for (const auto& [key, value] : logs.values())
    if (value.kind == ValueKind::data) contents.values.emplace(key, value.bytes);
  Larder::SavedList list;
  EXPECT_TRUE(logs.loadRows());
  if (logs.readList(listKey, list) != Linux::RowLog::Outcome::done) return contents;
  contents.rows.emplace();
  contents.note = list.note;
  for (const auto& row : readRows(list)) {
    if (row.text) contents.rows->push_back(*row.text);
  }
  return contents;
}

bool editList(StoreLogs& logs, const Larder::ListEdit& edit) {
  Linux::RowLog::Placed placed;
  return logs.loadRows() && logs.edit(listKey, edit, placed) == Linux::RowLog::Outcome::done;
}

/// One change of a store and of the oracle beside it.
struct Step {
  std::function<bool(StoreLogs&)> make;
  std::function<void(Contents&)> expect;
};

Step put(std::string key, std::string text) {
  return {[=](StoreLogs& logs) {
            return logs.put(key, {ValueKind::data, text});
          },
          [=](Contents& contents) { contents.values[key] = text; }};
}
Step erase(std::string key) {
  return {[=](StoreLogs& logs) { return logs.remove(key); },
          [=](Contents& contents) { contents.values.erase(key); }};
}
Step begin(std::vector<std::string> texts, std::string note = "") {
  return {[=](StoreLogs& logs) {
            Larder::ListEdit edit{.replacesAll = true, .removed = {}, .appended = {}, .note = note};
            for (std::size_t i = 0; i < texts.size(); ++i)
              edit.appended.push_back(row(i, texts[i]));
            return editList(logs, edit);
          },
          [=](Contents& contents) {
            contents.rows = texts;
            contents.note = note;
            contents.values.erase(listKey);
          }};
}
/// Removes the oldest `count` rows, whose first ordinal is `first`, and appends at `ordinal`.
Step change(std::uint64_t first, std::size_t count, std::uint64_t ordinal,
            std::vector<std::string> texts, std::string note = "") {
  return {[=](StoreLogs& logs) {
            Larder::ListEdit edit;
            edit.note = note;
            if (count > 0) edit.removed.push_back({first, first + count});
            for (std::size_t i = 0; i < texts.size(); ++i)
              edit.appended.push_back(row(ordinal + i, texts[i]));
            return editList(logs, edit);
          },
          [=](Contents& contents) {
            auto& rows = *contents.rows;
            rows.erase(rows.begin(), rows.begin() + static_cast<std::ptrdiff_t>(count));
            rows.insert(rows.end(), texts.begin(), texts.end());
            if (!note.empty()) contents.note = note;
          }};
}
Step endList() {
  return {[](StoreLogs& logs) { return logs.loadRows() && logs.endList(listKey); },
          [](Contents& contents) {
            contents.rows = std::nullopt;
            contents.note.clear();
          }};
}
Step rewrite() {
  return {[](StoreLogs& logs) {
            logs.rewriteValues();
            return true;
          },
          [](Contents&) {}};
}

/// A row of a size of which three fill a segment.
std::string longText(char letter) { return std::string(1500 * 1024, letter); }

std::vector<Step> smallDay() {
  return {put("a", "1"),
          begin({"r0", "r1", "r2"}),
          put("b", "2"),
          change(0, 1, 3, {"r3", "r4"}, "n1"),
          put("a", "3"),
          erase("b"),
          change(1, 2, 5, {}),
          change(0, 0, 5, {"r5"}),
          change(0, 0, 6, {}, "n2"),
          rewrite()};
}

/// Segments fill, are dropped, and an old one is moved because of one row that stays.
std::vector<Step> longDay() {
  auto steps =
      std::vector{begin({"stays", longText('a'), longText('b'), longText('c')}, "first note")};
  std::uint64_t next = 4;
  for (const char letter : std::string("defghijklm")) {
    steps.push_back({[=](StoreLogs& logs) {
                       Larder::ListEdit edit;
                       edit.removed.push_back({next - 3, next - 2});
                       edit.appended.push_back(row(next, longText(letter)));
                       if (letter == 'k') edit.note = "last note";
                       return editList(logs, edit);
                     },
                     [=](Contents& contents) {
                       contents.rows->erase(contents.rows->begin() + 1);
                       contents.rows->push_back(longText(letter));
                       if (letter == 'k') contents.note = "last note";
                     }});
    ++next;
  }
  steps.push_back(endList());
  return steps;
}

class StoreLogsTests : public testing::Test {
 protected:
  std::unique_ptr<StoreLogs> open() {
    auto logs = StoreLogs::own(std::make_shared<ModelDisk>(folder), "store", system.system());
    return logs ? *std::move(logs) : nullptr;
  }
  Contents play(const std::vector<Step>& steps) {
    Contents expected;
    const auto logs = open();
    for (const auto& step : steps) {
      EXPECT_TRUE(step.make(*logs));
      step.expect(expected);
    }
    EXPECT_EQ(contentsOf(*logs), expected);
    return expected;
  }
  /// Kills the process at each call that changes the disk, and looks at what the next one finds.
  void killEverywhere(const std::vector<Step>& steps) {
    bool hasDied = true;
    for (int call = 0; hasDied && !HasFailure(); ++call) {
      SCOPED_TRACE(call);
      folder = ModelFolder();
      folder.dieAt = call;
      Contents before, after;
      if (const auto logs = open()) {
        for (std::size_t i = 0; i < steps.size() && folder.isAlive(); ++i) {
          before = after;
          steps[i].expect(after);
          step(*logs, steps[i]);
        }
      }
      hasDied = !folder.isAlive();
      if (!hasDied) before = after;
      folder.restart();
      const auto next = open();
      ASSERT_TRUE(next);
      const auto found = contentsOf(*next);
      EXPECT_TRUE(found == before || found == after)
          << testing::PrintToString(found) << " is neither " << testing::PrintToString(before)
          << " nor " << testing::PrintToString(after);
      EXPECT_THAT(system.lines(), IsEmpty());
    }
  }
  static void step(StoreLogs& logs, const Step& step) { step.make(logs); }

  ModelFolder folder;
  FakeSystem system;
};

TEST_F(StoreLogsTests, holdsWhatWasWritten) {
  const auto expected = play(smallDay());
  EXPECT_EQ(contentsOf(*open()), expected);
  EXPECT_THAT(system.lines(), IsEmpty());
}

TEST_F(StoreLogsTests, anEmptySegmentThatNobodyKnowsOfIsNoLoss) {
  auto expected = play({put("a", "1")});
  folder.files["rows-1.log"] = std::make_shared<ModelFolder::File>();
  const auto list = begin({"r0"});
  EXPECT_TRUE(list.make(*open()));
  list.expect(expected);
  EXPECT_EQ(contentsOf(*open()), expected);
  EXPECT_THAT(system.lines(), IsEmpty());
}

TEST_F(StoreLogsTests, dropsSegmentsOfWhichNothingLives) {
  const auto expected = play(longDay());
  EXPECT_EQ(contentsOf(*open()), expected);
  EXPECT_LE(folder.files.size(), 7u);
}

TEST_F(StoreLogsTests, aKillAtAnyCallLosesNothing) { killEverywhere(smallDay()); }

TEST_F(StoreLogsTests, aKillWhileSegmentsAreMovedAndDroppedLosesNothing) {
  killEverywhere(longDay());
}

TEST_F(StoreLogsTests, aCallThatFailsLeavesTheStepUndoneAndTheNextOnesPossible) {
  bool hasFailed = true;
  for (int call = 0; hasFailed && !HasFailure(); ++call) {
    SCOPED_TRACE(call);
    folder = ModelFolder();
    const auto logs = open();
    folder.changes = 0;
    folder.failAt = call;
    Contents expected;
    for (const auto& step : smallDay()) {
      bool isMade = step.make(*logs);
      for (int again = 0; !isMade && again < 2; ++again) isMade = step.make(*logs);
      EXPECT_TRUE(isMade);
      step.expect(expected);
    }
    hasFailed = folder.changes > call;
    EXPECT_EQ(contentsOf(*logs), expected);
    EXPECT_EQ(contentsOf(*open()), expected);
  }
}

TEST_F(StoreLogsTests, aStepThatFailsLeavesWhatWasThere) {
  const std::vector<Step> days[] = {{put(listKey, "bytes"), begin({"r0"}), begin({"r1"})},
                                    {begin({"r0"}), begin({"r1"}), endList(), begin({"r2"})}};
  for (const auto& day : days) {
    bool hasFailed = true;
    for (int call = 0; hasFailed && !HasFailure(); ++call) {
      SCOPED_TRACE(call);
      folder = ModelFolder();
      const auto logs = open();
      folder.changes = 0;
      folder.failAt = call;
      Contents expected;
      for (const auto& step : day) {
        if (!step.make(*logs)) break;
        step.expect(expected);
      }
      hasFailed = folder.changes > call;
      folder.restart();
      // Bytes count before a list under the same key.
      for (const auto& found : {contentsOf(*logs), contentsOf(*open())}) {
        EXPECT_EQ(found.values, expected.values);
        EXPECT_TRUE(found.rows == expected.rows || expected.values.contains(listKey));
      }
    }
  }
}

/// A store of values and rows that is damaged in one place after the other.
class DamagedStoreLogsTests : public StoreLogsTests {
 protected:
  DamagedStoreLogsTests() {
    std::vector<Step> steps;
    for (int i = 0; i < 4; ++i) steps.push_back(put("k" + std::to_string(i), std::to_string(i)));
    steps.push_back(begin({"r0", "r1", "r2", "r3"}, "n1"));
    steps.push_back(change(0, 2, 4, {"r4", "r5"}, "n2"));
    whole = play(steps);
    files = folder.contents();
  }

  /// How many values and rows of the whole store are missing. Rows whose removal was lost come
  /// back.
  static std::size_t lost(const Contents& whole, const Contents& found) {
    std::size_t lost = 0;
    for (const auto& value : whole.values) lost += !std::ranges::count(found.values, value);
    const auto rows = found.rows.value_or(std::vector<std::string>());
    for (const auto& row : *whole.rows) lost += !std::ranges::count(rows, row);
    EXPECT_LE(found.values.size(), whole.values.size());
    return lost;
  }
  std::size_t lostNow() {
    system.clearLines();
    const auto logs = open();
    if (!logs) return 100;
    auto found = contentsOf(*logs);
    return lost(whole, found);
  }

  Contents whole;
  std::map<std::string, std::string> files;
};

// As a power cut leaves them, when their sizes reached the medium and their last bytes did not.
TEST_F(DamagedStoreLogsTests, filesThatEndInZerosEndTooEarlyAndAreToldOnce) {
  for (const auto* file : {"values.log", "rows-1.log"}) {
    SCOPED_TRACE(file);
    folder.restore(files);
    folder.files.at(file)->bytes.append(200, '\0');
    EXPECT_EQ(lostNow(), 0u);
    EXPECT_THAT(system.lines(), ElementsAre(HasSubstr(std::string(file) + " ends too early")));
    EXPECT_EQ(lostNow(), 0u);
    EXPECT_THAT(system.lines(), IsEmpty());
  }
}

TEST_F(DamagedStoreLogsTests, oneWrongByteCostsAtMostOneEntryAndIsTold) {
  for (const auto& [name, bytes] : files) {
    for (std::size_t i = 0; i < bytes.size() && !HasFailure(); ++i) {
      SCOPED_TRACE(name + " " + std::to_string(i));
      folder.restore(files);
      folder.files[name]->bytes[i] = static_cast<char>(bytes[i] ^ 0x10);
      const auto damaged = open();
      ASSERT_TRUE(damaged);
      const auto found = contentsOf(*damaged);
      const auto cost = lost(whole, found);
      EXPECT_LE(cost, 1u);
      EXPECT_THAT(found.rows.value(), IsSubsetOf(*whole.rows));
      EXPECT_EQ(found.note, whole.note);
      EXPECT_TRUE(cost == 0 || !system.lines().empty());
      system.clearLines();
      EXPECT_EQ(lostNow(), cost);
      // A damaged text stays where it is, and each reader is told of it once.
      EXPECT_THAT(system.lines(), AnyOf(IsEmpty(), ElementsAre(HasSubstr("Damaged elements"))));
    }
  }
}

TEST_F(DamagedStoreLogsTests, aCutCostsWhatWasBehindItAndIsTold) {
  for (const auto& [name, bytes] : files) {
    for (std::size_t size = 0; size < bytes.size() && !HasFailure(); ++size) {
      SCOPED_TRACE(name + " " + std::to_string(size));
      folder.restore(files);
      folder.files[name]->bytes.resize(size);
      const auto cost = lostNow();
      EXPECT_TRUE(cost == 0 || !system.lines().empty());
      EXPECT_LE(cost, 4u);
      EXPECT_EQ(lostNow(), cost);
      EXPECT_THAT(system.lines(), IsEmpty());
    }
  }
}

TEST_F(DamagedStoreLogsTests, aMissingEmptyOrForeignFileCostsWhatWasInItAndIsTold) {
  ModelFolder others;
  {
    const auto logs = StoreLogs::own(std::make_shared<ModelDisk>(others), "other", system.system());
    for (const auto& step : smallDay()) step.make(**logs);
  }
  const std::map<std::string, std::function<void(const std::string&)>> harms{
      {"missing", [&](const auto& name) { folder.files.erase(name); }},
      {"empty", [&](const auto& name) { folder.files[name]->bytes.clear(); }},
      {"foreign", [&](const auto& name) { folder.files[name]->bytes = others.files[name]->bytes; }},
      {"noise", [&](const auto& name) { folder.files[name]->bytes = std::string(9000, '\xA5'); }},
  };
  for (const auto& [name, bytes] : files) {
    for (const auto& [harm, make] : harms) {
      SCOPED_TRACE(name + " " + harm);
      folder.restore(files);
      make(name);
      const auto cost = lostNow();
      const bool isTold = !system.lines().empty();
      EXPECT_EQ(cost, name == "values.log" || name == "rows-1.log" ? 4u : 0u);
      EXPECT_TRUE(cost == 0 || isTold);
      EXPECT_EQ(lostNow(), cost);
      EXPECT_THAT(system.lines(), IsEmpty());
    }
  }
}

TEST_F(DamagedStoreLogsTests, aKillWhileItIsOpenedCostsNothingMore) {
  for (const auto& [name, bytes] : files) {
    for (std::size_t i = 0; i < bytes.size() && !HasFailure(); i += 7) {
      SCOPED_TRACE(name + " " + std::to_string(i));
      folder.restore(files);
      folder.files[name]->bytes[i] = static_cast<char>(bytes[i] ^ 1);
      const auto harmed = folder.contents();
      const auto cost = lostNow();
      bool hasDied = true;
      for (int call = 0; hasDied && !HasFailure(); ++call) {
        SCOPED_TRACE(call);
        folder = ModelFolder();
        folder.restore(harmed);
        folder.dieAt = call;
        open();
        hasDied = !folder.isAlive();
        folder.restart();
        EXPECT_EQ(lostNow(), cost);
      }
    }
  }
}

/// A store of three segments, the first two of which are full.
class DamagedSegmentTests : public StoreLogsTests {
 protected:
  DamagedSegmentTests() {
    whole = play({begin({longText('a'), longText('b')}), change(0, 0, 2, {longText('c'), "d"}),
                  change(0, 0, 4, {longText('e')}), change(0, 0, 5, {longText('f')}),
                  change(0, 0, 6, {longText('g')}), change(0, 0, 7, {"h"})});
    files = folder.contents();
  }

  /// How many rows are there after the next start, and after the one that follows.
  std::size_t rowsNow() {
    system.clearLines();
    return contentsOf(*open()).rows.value().size();
  }
  void expectToldOnce(const std::string& what, std::size_t rows) {
    EXPECT_EQ(rowsNow(), rows);
    EXPECT_THAT(system.lines(), Contains(HasSubstr(what)));
    EXPECT_EQ(rowsNow(), rows);
    EXPECT_THAT(system.lines(), IsEmpty());
  }

  Contents whole;
  std::map<std::string, std::string> files;
};

TEST_F(DamagedSegmentTests, aSegmentThatIsCutBeforeOthersIsToldOnce) {
  const auto& bytes = files.at("rows-1.log");
  const auto secondRow = bytes.find("bbb"), thirdRow = bytes.find("ccc"),
             last = bytes.rfind("ccc") + 3;
  ASSERT_LT(secondRow, thirdRow);
  constexpr auto headerSize = Linux::Record::headerSize;
  const std::map<std::size_t, std::size_t> rowsBefore{{headerSize + 20, 4},
                                                      {secondRow - headerSize, 5},
                                                      {secondRow, 5},
                                                      {thirdRow - headerSize, 6},
                                                      {last + 30, 7}};
  for (const auto& [size, rows] : rowsBefore) {
    SCOPED_TRACE(size);
    folder.restore(files);
    folder.files["rows-1.log"]->bytes.resize(size);
    expectToldOnce("rows-1.log ends too early", rows);
  }
}

TEST_F(DamagedSegmentTests, aSegmentThatIsDamagedBetweenOthersIsToldOnce) {
  auto& bytes = folder.files["rows-2.log"]->bytes;
  bytes[bytes.find("fff") - 30] ^= 1;
  folder.files.erase("rows-2.index");
  expectToldOnce("rows-2.log is damaged", 7);
}

TEST_F(DamagedSegmentTests, aDamagedRowOfASegmentWithAnIndexIsToldWhenItIsRead) {
  auto& bytes = folder.files["rows-2.log"]->bytes;
  bytes[bytes.find("fff") - 30] ^= 1;
  EXPECT_EQ(rowsNow(), 7u);
  EXPECT_THAT(system.lines(), ElementsAre(HasSubstr("Damaged elements were dropped")));
}

TEST_F(DamagedSegmentTests, aSegmentThatIsMissingBetweenOthersIsToldOnce) {
  ASSERT_TRUE(folder.files.contains("rows-2.index"));
  folder.files.erase("rows-2.log");
  expectToldOnce("rows-2.log is missing", 5);
  EXPECT_FALSE(folder.files.contains("rows-2.index"));
}

}  // namespace
}  // namespace kite::test
