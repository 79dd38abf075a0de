#include "Linux/Storage/Carver.h"

#include "Linux/Storage/PageFormat.h"
#include "Support/RawDatabase.h"
#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

namespace kite::Linux {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

class CarverTests : public testing::Test {
 protected:
  CarverTests() : database(file) {
    database.reserve(static_cast<int>(pageSumSize));
    database.execute(
        "PRAGMA page_size=8192;"
        "CREATE TABLE entries(key TEXT PRIMARY KEY, kind INTEGER NOT NULL, bytes BLOB NOT NULL,"
        " crc INTEGER NOT NULL);"
        "CREATE TABLE list_rows(place INTEGER PRIMARY KEY, key TEXT NOT NULL, bytes BLOB NOT NULL,"
        " crc INTEGER NOT NULL)");
  }

  std::string contents() const {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }
  static std::vector<std::string> rows(const std::string& file) {
    std::vector<std::string> rows;
    Carver(file, "").forEachRow([&](const CarvedRow& row) {
      rows.push_back(std::string(row.key) + (row.isListRow ? '#' : '=') +
                     std::to_string(row.number) + ':' + std::to_string(row.bytes.size()) + ':' +
                     std::to_string(row.crc));
    });
    return rows;
  }
  static void write(std::string& bytes, std::size_t place, std::uint32_t number) {
    for (std::size_t i = 0; i < 4; ++i)
      bytes[place + i] = static_cast<char>(number >> (24 - 8 * i));
  }

  test::TemporaryFolder temporary;
  std::filesystem::path file = temporary.path() / "database";
  test::RawDatabase database;
};

TEST_F(CarverTests, readsRowsOfBothTablesWithAllSizesOfNumbers) {
  database.execute("INSERT INTO entries VALUES('a',1,x'31',0),('b',0,x'',4294967295)");
  database.execute("INSERT INTO list_rows VALUES(1099511627776,'l',x'3132',-129),(9,'m',x'',1)");
  const auto found = rows(contents());
  for (const auto* row : {"a=1:1:0", "b=0:0:4294967295", "l#1099511627776:2:-129", "m#9:0:1"})
    EXPECT_THAT(found, Contains(row));
}

TEST_F(CarverTests, putsARowTogetherThatNeedsSeveralPages) {
  std::vector<int> sizes{100000};
  for (const int pages : {1, 2})  // from where a page holds all of it to where it needs another
    for (int size = pages * 8192 - 60; size < pages * 8192; ++size) sizes.push_back(size);
  for (const auto size : sizes)
    database.execute("INSERT INTO list_rows VALUES(" + std::to_string(size) + ",'l',zeroblob(" +
                     std::to_string(size) + "),7)");
  const auto found = rows(contents());
  for (const auto size : sizes)
    EXPECT_THAT(found, Contains("l#" + std::to_string(size) + ':' + std::to_string(size) + ":7"));
}

TEST_F(CarverTests, findsAListsRowThatNothingPointsTo) {
  database.execute("INSERT INTO list_rows VALUES(5,'l',x'3132',7)");
  auto bytes = contents();
  bytes[2 * pageSize + pageSize] = '\0';  // the type of the page behind those of the entries
  EXPECT_THAT(rows(bytes), ElementsAre("l#5:2:7"));
}

TEST_F(CarverTests, leavesARowOutWhoseFurtherPagesAreMissing) {
  database.execute("INSERT INTO list_rows VALUES(5,'l',zeroblob(100000),7)");
  auto bytes = contents();
  bytes.resize(bytes.size() - pageSize);
  EXPECT_THAT(rows(bytes), IsEmpty());
}

TEST_F(CarverTests, isNotCaughtInPagesThatFollowOneAnotherInACircle) {
  database.execute("INSERT INTO list_rows VALUES(5,'l',zeroblob(1000000),7)");
  auto bytes = contents();
  for (std::size_t page = 4 * pageSize; page < bytes.size(); page += pageSize)
    write(bytes, page, 5);
  EXPECT_THAT(rows(bytes), Not(IsEmpty()));
}

TEST_F(CarverTests, isNotCaughtInAListOfFreePagesThatFollowOneAnotherInACircle) {
  database.execute("INSERT INTO entries VALUES('a',1,x'31',0)");
  auto bytes = contents();
  bytes.append(pageSize, '\0');
  const auto last = static_cast<std::uint32_t>(bytes.size() / pageSize);
  write(bytes, 32, last);
  write(bytes, (last - 1) * pageSize, last);
  write(bytes, (last - 1) * pageSize + 4, 0xFFFFFFFF);
  EXPECT_THAT(rows(bytes), Contains("a=1:1:0"));
}

TEST_F(CarverTests, survivesAnyBytes) {
  for (int i = 0; i < 30; ++i)
    database.execute("INSERT INTO list_rows VALUES(" + std::to_string(i) + ",'l',zeroblob(" +
                     std::to_string(700 * i) + "),7)");
  const auto sound = contents();
  std::mt19937 random(7);
  for (int round = 0; round < 30; ++round) {
    auto bytes = sound;
    for (int i = 0; i < 300; ++i) bytes[random() % bytes.size()] = static_cast<char>(random());
    for (int i = 0; i < 30; ++i)
      bytes[random() % (bytes.size() / pageSize) * pageSize + random() % 16] =
          static_cast<char>(random());
    bytes.resize(bytes.size() - random() % pageSize);
    rows(bytes);
    Carver("", bytes).forEachRow([](const CarvedRow&) {});
  }
}

}  // namespace
}  // namespace kite::Linux
