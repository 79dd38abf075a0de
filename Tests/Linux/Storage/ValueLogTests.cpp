#include "Linux/Storage/ValueLog.h"

#include "Linux/Storage/ModelDisk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kite::test {
namespace {

using Linux::ValueKind;
using Linux::ValueLog;
using testing::ElementsAre;
using testing::Pair;

class ValueLogTests : public testing::Test {
 protected:
  std::unique_ptr<ValueLog> load() {
    Linux::Damages damages;
    auto loaded = ValueLog::load(disk, store, /*lastChange=*/0, damages);
    EXPECT_TRUE(damages.empty()) << damages.text();
    return loaded;
  }
  static std::vector<std::pair<std::string, std::string>> valuesOf(const ValueLog& log) {
    std::vector<std::pair<std::string, std::string>> values;
    for (const auto& [key, value] : log.values()) values.emplace_back(key, value.bytes);
    return values;
  }

  static constexpr std::uint64_t store = 7;
  const std::string text = std::string(1000, 'x');
  ModelFolder folder;
  ModelDisk disk{folder};
  std::unique_ptr<ValueLog> log = ValueLog::make(disk, store);
};

TEST_F(ValueLogTests, rewritingKeepsTheValuesAndTheNumberOfTheLastChange) {
  log->put("a", {ValueKind::data, "1"});
  log->put("b", {ValueKind::number, "2"});
  log->put("a", {ValueKind::data, "3"});
  log->put("", {ValueKind::dictionary, ""});
  log->remove("b");
  const auto last = log->lastChange();
  const auto size = log->file()->size();
  ASSERT_TRUE(log->rewrite());
  EXPECT_LT(log->file()->size(), size);
  EXPECT_THAT(valuesOf(*log), ElementsAre(Pair("", ""), Pair("a", "3")));
  EXPECT_EQ(load()->lastChange(), last);
  EXPECT_THAT(valuesOf(*load()), ElementsAre(Pair("", ""), Pair("a", "3")));
  log->put("c", {ValueKind::data, "4"});
  EXPECT_THAT(valuesOf(*load()), ElementsAre(Pair("", ""), Pair("a", "3"), Pair("c", "4")));
}

TEST_F(ValueLogTests, isGrownWhenMostOfItIsOfNoUseAndNotSoonAgain) {
  log->put("a", {ValueKind::data, text});
  int changes = 0;
  for (; !log->isGrown() && changes < 1000; ++changes) log->put("a", {ValueKind::data, text});
  EXPECT_GT(changes, 10);
  log->rewrite();
  EXPECT_FALSE(log->isGrown());
  EXPECT_LT(changes, 1000);
}

TEST_F(ValueLogTests, isNotGrownByValuesThatLive) {
  for (int i = 0; i < 300; ++i) log->put(std::to_string(i), {ValueKind::data, text});
  EXPECT_FALSE(log->isGrown());
}

TEST_F(ValueLogTests, aPowerCutAfterARewriteLosesNothing) {
  log->put("a", {ValueKind::data, "1"});
  log->file()->sync();
  ASSERT_TRUE(log->rewrite());
  folder.cutPower();
  EXPECT_THAT(valuesOf(*load()), ElementsAre(Pair("a", "1")));
}

}  // namespace
}  // namespace kite::test
