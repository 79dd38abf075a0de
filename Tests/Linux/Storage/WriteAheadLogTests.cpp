#include "Linux/Storage/WriteAheadLog.h"

#include "Linux/Storage/PageFormat.h"
#include "Support/RawDatabase.h"
#include "Support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

namespace kite::Linux {
namespace {

constexpr std::size_t logHeaderSize = 32;
constexpr std::size_t frameHeaderSize = 24;
constexpr std::size_t frameSize = frameHeaderSize + pageSize;

class WriteAheadLogTests : public testing::Test {
 protected:
  WriteAheadLogTests() {
    test::RawDatabase database(file);
    database.execute("PRAGMA page_size=8192; PRAGMA journal_mode=WAL; CREATE TABLE t(a)");
    for (int i = 0; i < 5; ++i) database.execute("INSERT INTO t VALUES(1)");
    oneGeneration = log();
    database.execute("PRAGMA wal_checkpoint(RESTART)");
    for (int i = 0; i < 3; ++i) database.execute("INSERT INTO t VALUES(2)");
    twoGenerations = log();
  }

  std::string log() const {
    std::ifstream stream(file.string() + "-wal", std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }
  static void overwrite(std::string& log, std::size_t place, std::size_t size) {
    log.replace(place, size, std::string(size, '\xA5'));
  }
  static std::size_t frameAt(std::size_t index) { return logHeaderSize + index * frameSize; }

  test::TemporaryFolder temporary;
  std::filesystem::path file = temporary.path() / "database";
  std::string oneGeneration, twoGenerations;
};

TEST_F(WriteAheadLogTests, hasTheFramesOfTheNewestGenerationAlone) {
  ASSERT_EQ(oneGeneration.size(), twoGenerations.size());
  EXPECT_EQ(WriteAheadLog(oneGeneration).frames().size(),
            (oneGeneration.size() - logHeaderSize) / frameSize);
  const WriteAheadLog log(twoGenerations);
  EXPECT_EQ(log.frames().size(), 3u);
  for (const auto& frame : log.frames()) EXPECT_TRUE(frame.isSound);
  EXPECT_FALSE(log.isBroken());
}

TEST_F(WriteAheadLogTests, isBrokenByAnyWrongByteOfAFrameThatOthersFollow) {
  for (std::size_t place = 0; place < frameSize; place += 7) {
    auto damaged = twoGenerations;
    damaged[frameAt(1) + place] ^= 1;
    const WriteAheadLog log(damaged);
    EXPECT_TRUE(log.isBroken()) << place;
    ASSERT_EQ(log.frames().size(), 3u) << place;
    EXPECT_FALSE(log.frames()[1].isSound) << place;
  }
}

TEST_F(WriteAheadLogTests, isBrokenByAWrongByteOfItsHeader) {
  for (std::size_t place = 0; place < logHeaderSize; ++place) {
    auto damaged = twoGenerations;
    damaged[place] ^= 1;
    EXPECT_TRUE(WriteAheadLog(damaged).isBroken()) << place;
    EXPECT_EQ(WriteAheadLog(damaged).frames().size(), 3u) << place;
  }
}

TEST_F(WriteAheadLogTests, isBrokenByAnyWrongByteOfItsLastFrame) {
  constexpr unsigned char bits[] = {0x01, 0x80, 0xFF, 0x5A};
  for (std::size_t place = 0; place < frameSize; ++place) {
    auto damaged = twoGenerations;
    auto& byte = damaged[frameAt(2) + place];
    byte = static_cast<char>(byte ^ bits[place % std::size(bits)]);
    EXPECT_TRUE(WriteAheadLog(damaged).isBroken()) << place;
  }
}

TEST_F(WriteAheadLogTests, isBrokenByAWrongByteOfTheLastFrameOfTheFile) {
  oneGeneration.back() = '\x7F';
  EXPECT_TRUE(WriteAheadLog(oneGeneration).isBroken());
}

/// A commit that reads as none.
TEST_F(WriteAheadLogTests, isBrokenByACommitThatIsNoLongerOne) {
  ASSERT_EQ(twoGenerations.substr(frameAt(2) + 4, 3), std::string(3, '\0'));
  twoGenerations[frameAt(2) + 7] = '\0';
  EXPECT_TRUE(WriteAheadLog(twoGenerations).isBroken());
}

TEST_F(WriteAheadLogTests, isNotBrokenByAFrameThatWasBeingWrittenOverAnEarlierOne) {
  overwrite(twoGenerations, frameAt(2) + frameHeaderSize, pageSize);
  EXPECT_FALSE(WriteAheadLog(twoGenerations).isBroken());
  EXPECT_EQ(WriteAheadLog(twoGenerations).frames().size(), 2u);
}

TEST_F(WriteAheadLogTests, isNotBrokenByAFrameThatWasBeingAppended) {
  oneGeneration.resize(oneGeneration.size() - 1);
  EXPECT_FALSE(WriteAheadLog(oneGeneration).isBroken());
}

/// With so little memory that pages go to the log before the commit.
class UnfinishedTransactionTests : public WriteAheadLogTests {
 protected:
  UnfinishedTransactionTests() {
    database.execute("PRAGMA cache_size=5; INSERT INTO t VALUES(3)");
    finished = WriteAheadLog(log()).frames().size();
    database.execute("BEGIN");
    for (int i = 0; i < 100; ++i) database.execute("INSERT INTO t VALUES(zeroblob(4000))");
  }

  test::RawDatabase database{file};
  std::size_t finished = 0;
};

TEST_F(UnfinishedTransactionTests, doNotBreakTheLogWithPagesThatTheyWriteTwice) {
  database.execute("UPDATE t SET a=randomblob(4000)");
  const auto bytes = log();
  EXPECT_GT(bytes.size(), frameAt(finished + 10));
  EXPECT_FALSE(WriteAheadLog(bytes).isBroken());
}

TEST_F(UnfinishedTransactionTests, leaveFramesBehindThatAreNotOfTheNextTransaction) {
  database.execute("ROLLBACK; INSERT INTO t VALUES(4)");
  const auto bytes = log();
  EXPECT_GT(bytes.size(), frameAt(finished + 10));
  EXPECT_FALSE(WriteAheadLog(bytes).isBroken());
  EXPECT_EQ(WriteAheadLog(bytes).frames().size(), finished + 1);
}

TEST_F(WriteAheadLogTests, isNotBrokenWhileItIsEmpty) {
  EXPECT_FALSE(WriteAheadLog("").isBroken());
  EXPECT_FALSE(WriteAheadLog(oneGeneration.substr(0, logHeaderSize)).isBroken());
  EXPECT_TRUE(WriteAheadLog("").frames().empty());
}

TEST_F(WriteAheadLogTests, reachesBeyondFramesThatAreDestroyed) {
  overwrite(oneGeneration, frameAt(1), 2 * frameSize);
  EXPECT_TRUE(WriteAheadLog(oneGeneration).isBroken());
  EXPECT_EQ(WriteAheadLog(oneGeneration).frames().size(),
            (oneGeneration.size() - logHeaderSize) / frameSize - 2);
}

}  // namespace
}  // namespace kite::Linux
