#include <Kite/Linux/LinuxPlatform.h>

#include "Support/AppendRows.h"
#include "Support/FakeSystem.h"
#include "Support/TemporaryFolder.h"
#include "Support/TextSegment.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace kite::test {
namespace {

constexpr std::size_t page = 8192;
constexpr std::size_t logHeader = 32;
constexpr std::size_t frameHeader = 24;
constexpr unsigned rowCount = 30;

std::string elementOf(unsigned ordinal) {
  // One of them needs pages of its own.
  return '"' + std::string(ordinal == 7 ? 20000 : 1000, static_cast<char>('a' + ordinal % 26)) +
         '"';
}

bool isUndamaged(const Larder::StoredValue::StoredRow& row) {
  return row.text == elementOf(static_cast<unsigned>(row.ordinal));
}

/// A store's files, of which a copy is damaged and opened anew.
class DamagedStoreTests : public testing::Test {
 protected:
  using Files = std::map<std::string, std::string>;

  struct Found {
    unsigned elements = 0;
    bool isOrdered = true;
    bool hasNewestValue = false;
    bool isReported = false;
  };

  /// Of a host that still runs, so that all is in the log.
  static Files filesBeforeTheEnd() {
    const TemporaryFolder temporary;
    const auto storage = fill(temporary.path());
    return read(temporary.path());
  }
  /// Of a host that has ended, so that all is in the database.
  static Files filesAtTheEnd() {
    const TemporaryFolder temporary;
    fill(temporary.path());
    return read(temporary.path());
  }

  static void write(const Files& files, const std::filesystem::path& folder) {
    for (const auto& [name, bytes] : files) std::ofstream(folder / name, std::ios::binary) << bytes;
  }
  static Found open(const Files& files) {
    const TemporaryFolder temporary;
    write(files, temporary.path());
    FakeSystem system;
    const auto storage = Linux::sqliteKVStorage(temporary.path(), system.system());
    Found found;
    if (const auto list = storage->read("l")) {
      const auto& rows = *list->rows();
      found.elements = static_cast<unsigned>(std::ranges::count_if(rows, isUndamaged));
      found.isOrdered = std::ranges::is_sorted(rows, {}, &Larder::StoredValue::StoredRow::ordinal);
    }
    const auto value = storage->read("k");
    found.hasNewestValue = value && value->data().bytes == "newest";
    found.isReported = !system.lines().empty();
    return found;
  }

  /// Whether a store with these files keeps a new value for the next run.
  static bool isWritable(const Files& files) {
    const TemporaryFolder temporary;
    write(files, temporary.path());
    const auto open = [&] {
      return Linux::sqliteKVStorage(temporary.path(), FakeSystem().system());
    };
    open()->write("k", {"newer"});
    const auto value = open()->read("k");
    return value && value->data().bytes == "newer";
  }

  static void flip(std::string& bytes, std::size_t place) {
    bytes[place] = static_cast<char>(bytes[place] ^ 0x55);
  }

  /// All but at most one value is found, whichever of these bytes is wrong.
  static void expectAllRowsButTheDamagedOne(const Files& sound, const std::string& name,
                                            const std::vector<std::size_t>& places) {
    for (const auto place : places) {
      auto files = sound;
      flip(files[name], place);
      const auto found = open(files);
      EXPECT_GE(found.elements + (found.hasNewestValue ? 1 : 0), rowCount) << name << ' ' << place;
      EXPECT_TRUE(found.isOrdered) << name << ' ' << place;
    }
  }

 private:
  static std::shared_ptr<Larder::KVStorage> fill(const std::filesystem::path& folder) {
    const auto storage = Linux::sqliteKVStorage(folder, FakeSystem().system());
    storage->write("k", {"old"});
    for (unsigned i = 0; i < rowCount; ++i) {
      appendRows(*storage, "l", {row(i, elementOf(i))});
      if (i == rowCount / 2) storage->write("k", {"newest"});
    }
    return storage;
  }
  static Files read(const std::filesystem::path& folder) {
    Files files;
    for (const auto* name : {"kv.sqlite", "kv.sqlite-wal"}) {
      std::ifstream stream(folder / name, std::ios::binary);
      if (stream) files[name] = {std::istreambuf_iterator<char>(stream), {}};
    }
    return files;
  }
};

std::vector<std::size_t> range(std::size_t first, std::size_t end, std::size_t step) {
  std::vector<std::size_t> places;
  for (; first < end; first += step) places.push_back(first);
  return places;
}

TEST_F(DamagedStoreTests, isWholeWithoutDamage) {
  for (const auto& files : {filesBeforeTheEnd(), filesAtTheEnd()}) {
    const auto found = open(files);
    EXPECT_EQ(found.elements, rowCount);
    EXPECT_TRUE(found.hasNewestValue);
    EXPECT_FALSE(found.isReported);
  }
}

TEST_F(DamagedStoreTests, losesNothingButTheRowToAWrongByteInTheLog) {
  const auto files = filesBeforeTheEnd();
  const auto size = files.at("kv.sqlite-wal").size();
  ASSERT_GT(size, logHeader + 20 * (frameHeader + page));
  expectAllRowsButTheDamagedOne(files, "kv.sqlite-wal", range(0, logHeader, 4));
  // Not a divisor of a frame's size, so that all parts of frames have their turn.
  expectAllRowsButTheDamagedOne(files, "kv.sqlite-wal", range(logHeader, size, 12347));
  for (const auto part : {0u, 9u, 17u}) {
    const auto frame = logHeader + frameHeader + page;
    expectAllRowsButTheDamagedOne(files, "kv.sqlite-wal",
                                  range(logHeader + part, size, 5 * (frame - logHeader)));
  }
}

/// Some of which tell SQLite to write nothing.
TEST_F(DamagedStoreTests, savesWhatComesAfterAWrongByteInTheHeader) {
  const auto files = filesAtTheEnd();
  for (const auto place : range(0, 100, 1)) {
    auto damaged = files;
    flip(damaged["kv.sqlite"], place);
    EXPECT_TRUE(isWritable(damaged)) << place;
  }
}

TEST_F(DamagedStoreTests, isNotReadWithoutItsLogWhateverTheHeaderSays) {
  auto files = filesBeforeTheEnd();
  auto& bytes = files["kv.sqlite"];
  ASSERT_EQ(bytes.substr(18, 2), "\2\2");
  for (const char version : {'\0', '\1'}) {
    bytes[19] = version;
    const auto found = open(files);
    EXPECT_EQ(found.elements, rowCount);
    EXPECT_TRUE(found.hasNewestValue);
  }
}

TEST_F(DamagedStoreTests, losesNothingToAWrongByteInTheHeaderOrTheSchema) {
  const auto files = filesAtTheEnd();
  std::vector<std::size_t> places = range(0, 112, 3);
  const auto& bytes = files.at("kv.sqlite");
  const auto schema = bytes.find("table", 112);
  ASSERT_LT(schema, page);
  for (const auto place : range(schema - 8, page, 11)) places.push_back(place);
  for (const auto place : places) {
    auto damaged = files;
    flip(damaged["kv.sqlite"], place);
    const auto found = open(damaged);
    EXPECT_EQ(found.elements, rowCount) << place;
    EXPECT_TRUE(found.hasNewestValue) << place;
  }
}

TEST_F(DamagedStoreTests, losesNothingButTheRowToAWrongByteInAPage) {
  const auto files = filesAtTheEnd();
  const auto size = files.at("kv.sqlite").size();
  for (const auto part : {0u, 3u, 4u, 6u, 9u})  // type, count, begin of the cells, their places
    expectAllRowsButTheDamagedOne(files, "kv.sqlite", range(page + part, size, page));
}

TEST_F(DamagedStoreTests, keepsWhatStandsBeforeTheEndOfATruncatedFile) {
  const auto files = filesAtTheEnd();
  const auto size = files.at("kv.sqlite").size();
  for (std::size_t cut = 0; cut < size; cut += 3001) {
    auto damaged = files;
    damaged["kv.sqlite"].resize(cut);
    const auto found = open(damaged);
    EXPECT_TRUE(found.isOrdered) << cut;
    EXPECT_EQ(found.isReported, cut != 0) << cut;
    // Seven elements to a page, and some pages that hold none.
    const auto pages = cut / page;
    EXPECT_GE(found.elements + 7 * 7, std::min<std::size_t>(pages * 7, rowCount)) << cut;
  }
}

TEST_F(DamagedStoreTests, keepsWhatStandsBeforeTheEndOfATruncatedLog) {
  const auto files = filesBeforeTheEnd();
  const auto size = files.at("kv.sqlite-wal").size();
  unsigned before = 0;
  for (std::size_t cut = 0; cut < size; cut += 12347) {
    auto damaged = files;
    damaged["kv.sqlite-wal"].resize(cut);
    const auto found = open(damaged);
    EXPECT_GE(found.elements, before) << cut;
    EXPECT_TRUE(found.isOrdered) << cut;
    before = found.elements;
  }
  EXPECT_GE(before, rowCount - 3);
}

}  // namespace
}  // namespace kite::test
