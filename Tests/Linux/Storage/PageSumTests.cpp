#include "Linux/Storage/PageSum.h"

#include <Kite/Linux/LinuxPlatform.h>

#include "Support/AppendRows.h"
#include "Support/FakeSystem.h"
#include "Support/TemporaryFolder.h"
#include "Support/TextSegment.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>

namespace kite::Linux {
namespace {

using test::FakeSystem;
using Bytes = std::array<char, pageSize>;

Bytes pageOf(char filling, std::uint32_t number) {
  Bytes page;
  page.fill(filling);
  writeSum(page, number);
  return page;
}

TEST(PageSumTests, isTheCyclicRedundancyCheckOfThePageAndItsNumber) {
  const auto page = pageOf('a', 0x01020304);
  // zlib.crc32(b"a" * 8188 + bytes([4, 3, 2, 1])), little-endian
  EXPECT_EQ(std::string(page.end() - 4, page.end()), std::string("\x96\x27\xa6\x49", 4));
}

TEST(PageSumTests, tellsEveryWrongByte) {
  auto page = pageOf('a', 1);
  ASSERT_TRUE(isSound(page, 1));
  for (char& byte : page) {
    byte ^= 0x10;
    EXPECT_FALSE(isSound(page, 1)) << &byte - page.data();
    byte ^= 0x10;
  }
}

TEST(PageSumTests, tellsAPageInTheWrongPlace) { EXPECT_FALSE(isSound(pageOf('a', 1), 2)); }

TEST(PageSumTests, letsAPageBeThatWasNeverWritten) { EXPECT_TRUE(isSound(Bytes{}, 1)); }

std::uint64_t bytesReadByThisProcess() {
  std::ifstream stream("/proc/self/io");
  std::string name;
  std::uint64_t count = 0;
  stream >> name >> count;
  return name == "rchar:" ? count : throw std::runtime_error("no count of the bytes read");
}

/// A store whose pages are in its file.
class SummedStoreTests : public testing::Test {
 protected:
  static constexpr unsigned rowCount = 40;

  SummedStoreTests() {
    const auto storage = open();
    for (unsigned i = 0; i < rowCount; ++i)
      test::appendRows(*storage, "l", {test::row(i, '"' + std::string(2000, 'a') + '"')});
  }

  std::shared_ptr<Larder::KVStorage> open() {
    return sqliteKVStorage(temporary.path(), system.system());
  }
  std::size_t elements() {
    const auto list = open()->read("l");
    return list ? list->rows()->size() : 0;
  }
  std::string bytes() const {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }
  void replace(const std::string& bytes) const { std::ofstream(file, std::ios::binary) << bytes; }

  /// A page of rows that a start does not read: neither the first nor the last.
  static std::size_t middleLeaf(const std::string& bytes) {
    std::size_t place = bytes.size() / pageSize / 2 * pageSize;
    while (place < bytes.size() && bytes[place] != 0x0D) place += pageSize;
    return place;
  }

  test::TemporaryFolder temporary;
  std::filesystem::path file = temporary.path() / "kv.sqlite";
  FakeSystem system;
};

TEST_F(SummedStoreTests, everyPageCarriesItsSum) {
  const auto written = bytes();
  ASSERT_GT(written.size(), 5 * pageSize);
  for (std::uint32_t number = 1; number <= written.size() / pageSize; ++number) {
    const std::span<const char, pageSize> page(written.data() + (number - 1) * pageSize, pageSize);
    EXPECT_TRUE(isSound(page, number)) << number;
    EXPECT_FALSE(isSound(page, number + 1)) << number;
  }
}

TEST_F(SummedStoreTests, aSoundStoreIsReadOnce) {
  const auto before = bytesReadByThisProcess();
  EXPECT_EQ(elements(), rowCount);
  EXPECT_LT(bytesReadByThisProcess() - before, std::filesystem::file_size(file) * 3 / 2);
}

TEST_F(SummedStoreTests, aWrongSumAloneCostsNothing) {
  auto damaged = bytes();
  for (auto end = pageSize; end <= damaged.size(); end += pageSize) damaged[end - 1] ^= 1;
  replace(damaged);
  EXPECT_EQ(elements(), rowCount);
  EXPECT_TRUE(system.lines().empty());
  EXPECT_EQ(elements(), rowCount);
}

TEST_F(SummedStoreTests, aRowThatAPageHidesIsFound) {
  auto damaged = bytes();
  --damaged.at(middleLeaf(damaged) + 4);  // how many rows there are
  replace(damaged);
  EXPECT_EQ(elements(), rowCount);
  EXPECT_EQ(system.lines().size(), 1U);
}

TEST_F(SummedStoreTests, aPageThatIsDamagedBehindAnOpenStoreIsNotChanged) {
  const auto storage = open();
  const auto place = middleLeaf(bytes());
  std::fstream(file, std::ios::binary | std::ios::in | std::ios::out)
      .seekp(static_cast<std::streamoff>(place) + 4)
      .put(1);
  Larder::ListEdit edit;
  edit.removed.push_back({0, rowCount});
  EXPECT_EQ(storage->edit("l", edit), Larder::EditOutcome::listIsGone);
  EXPECT_EQ(system.lines().size(), 1U);
  const auto list = storage->read("l");
  ASSERT_TRUE(list);
  EXPECT_EQ(list->rows()->size(), rowCount);
}

}  // namespace
}  // namespace kite::Linux
