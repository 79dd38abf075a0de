#include "Counts/Anywhere/WrittenBytes.h"
#include "Fixture/StartedStorage.h"
#include "Support/Queues.h"
#include "Support/TemporaryFolder.h"

#include <gtest/gtest.h>

namespace kite::test {
namespace {

/// Over as many insertions as make the store move its log into the database a few times.
std::uint64_t bytesPerInsertion(int pending) {
  constexpr int insertions = 2000;
  const TemporaryFolder folder;
  constexpr bool isInBackground = true;
  bench::StartedStorage storage(folder.path(), isInBackground, std::make_shared<ImmediateQueue>());
  storage.insert(pending);
  const auto before = writtenBytes();
  storage.insert(insertions);
  return (writtenBytes() - before) / insertions;
}

TEST(WrittenBytesTests, aBackgroundInsertionWritesAFewPages) {
  EXPECT_LE(bytesPerInsertion(0), 13000U);
}

TEST(WrittenBytesTests, aBackgroundInsertionWritesNoMoreIntoALongQueue) {
  const auto intoAnEmptyOne = bytesPerInsertion(0);
  EXPECT_LE(bytesPerInsertion(10000), intoAnEmptyOne + intoAnEmptyOne / 20);
}

}  // namespace
}  // namespace kite::test
