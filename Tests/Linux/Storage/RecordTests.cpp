#include "Linux/Storage/Record.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace kite::test {
namespace {

using Linux::Record;
using Linux::RecordScanner;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint32_t recordSeed = 0x5EED;

std::string aRow(std::string_view text, std::uint32_t itsSeed = recordSeed) {
  std::string bytes;
  Linux::append(bytes, {.kind = Record::Kind::row, .payload = text}, itsSeed);
  return bytes;
}

/// The payloads that are found; a damaged one is "?".
std::vector<std::string> texts(RecordScanner& records) {
  std::vector<std::string> texts;
  while (const auto record = records.next())
    texts.emplace_back(records.isPayloadSound() ? record->payload : "?");
  return texts;
}

TEST(RecordTests, comesBackWithAllItsFields) {
  std::string bytes;
  Linux::append(bytes,
                {.kind = Record::Kind::rowsRemoved,
                 .list = 0xFEDCBA98,
                 .edit = 0xFFFFFFFFFFFFFFFE,
                 .ordinal = 1,
                 .payload = "text"},
                recordSeed);
  RecordScanner records(bytes, recordSeed);
  const auto record = records.next();
  ASSERT_TRUE(record);
  EXPECT_EQ(record->kind, Record::Kind::rowsRemoved);
  EXPECT_EQ(record->list, 0xFEDCBA98u);
  EXPECT_EQ(record->edit, 0xFFFFFFFFFFFFFFFEu);
  EXPECT_EQ(record->ordinal, 1u);
  EXPECT_EQ(record->payload, "text");
}

TEST(RecordTests, aPayloadMayBeEmpty) {
  const auto bytes = aRow("") + aRow("2");
  RecordScanner records(bytes, recordSeed);
  EXPECT_THAT(texts(records), ElementsAre("", "2"));
  EXPECT_EQ(records.damages(), 0u);
}

TEST(RecordTests, aScannerStepsOverADamagedPayload) {
  auto bytes = aRow("1") + aRow("two") + aRow("3");
  bytes[bytes.find("two")] = 'T';
  RecordScanner records(bytes, recordSeed);
  EXPECT_THAT(texts(records), ElementsAre("1", "?", "3"));
}

TEST(RecordTests, aScannerFindsTheNextRecordBehindAnyDamagedHeader) {
  const auto before = aRow("1"), damaged = aRow("two"), after = aRow("3");
  for (std::size_t i = 0; i < Record::headerSize; ++i) {
    auto bytes = before + damaged + after;
    bytes[before.size() + i] = static_cast<char>(bytes[before.size() + i] ^ 1);
    RecordScanner records(bytes, recordSeed);
    EXPECT_THAT(texts(records), ElementsAre("1", "3")) << i;
    EXPECT_EQ(records.damages(), 1u) << i;
    EXPECT_FALSE(records.isTorn()) << i;
  }
}

TEST(RecordTests, aScannerIsNotMisledByGarbageThatBeginsLikeARecord) {
  const auto bytes = aRow("1") + aRow("two").substr(0, 30) + aRow("3");
  RecordScanner records(bytes, recordSeed);
  EXPECT_THAT(texts(records), ElementsAre("1", "3"));
  EXPECT_EQ(records.damages(), 1u);
}

TEST(RecordTests, aRecordThatTheFileEndsInIsTornAndNoDamage) {
  const auto whole = aRow("1"), torn = aRow("two");
  for (std::size_t size = 1; size < torn.size(); ++size) {
    const auto bytes = whole + torn.substr(0, size);
    RecordScanner records(bytes, recordSeed);
    EXPECT_THAT(texts(records), ElementsAre("1")) << size;
    EXPECT_TRUE(records.isTorn()) << size;
    EXPECT_EQ(records.damages(), 0u) << size;
    EXPECT_EQ(records.end(), whole.size()) << size;
  }
}

TEST(RecordTests, otherBytesAtTheEndAreDamage) {
  for (const auto* rest : {"x", "xxxxxxxx"}) {
    const auto bytes = aRow("1") + rest;
    RecordScanner records(bytes, recordSeed);
    EXPECT_THAT(texts(records), ElementsAre("1"));
    EXPECT_EQ(records.damages(), 1u);
    EXPECT_FALSE(records.isTorn());
  }
}

TEST(RecordTests, recordsOfAnotherSeedAreNotTaken) {
  const auto bytes =
      aRow("1") + aRow("theirs", recordSeed + 1) + aRow("", recordSeed + 1) + aRow("3");
  RecordScanner records(bytes, recordSeed);
  EXPECT_THAT(texts(records), ElementsAre("1", "3"));
  RecordScanner others(bytes, Linux::seedFor(1));
  EXPECT_THAT(texts(others), IsEmpty());
}

TEST(RecordTests, allButRowsAreWrittenTwice) {
  std::string bytes;
  Linux::append(bytes, {.kind = Record::Kind::editEnd}, recordSeed);
  EXPECT_EQ(bytes.size(), 2 * Record::headerSize);
  EXPECT_EQ(aRow("").size(), Record::headerSize);
}

}  // namespace
}  // namespace kite::test
