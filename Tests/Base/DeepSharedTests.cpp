#include <Kite/Base/DeepShared.h>

#include "Support/SmallStack.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace kite::test {
namespace {

struct Cell;
using Cells = std::vector<DeepShared<Cell>>;

/// A cell owns others; how many live is counted.
struct Cell {
  static inline std::atomic<int> living = 0;

  explicit Cell(Cells others) : owned(std::move(others)) { ++living; }
  Cell(Cell&& other) noexcept : owned(std::move(other.owned)) { ++living; }
  ~Cell() { --living; }

  Cells owned;
};

/// The first of so many cells in a row.
DeepShared<Cell> listOf(int length) {
  DeepShared<Cell> list(Cell({}));
  for (int i = 1; i < length; ++i) list = DeepShared<Cell>(Cell({list}));
  return list;
}

TEST(DeepShared, keepsItsValueUntilTheLastOwnerGoes) {
  Cells first{listOf(1)};
  Cells second = first;
  first.clear();
  EXPECT_EQ(Cell::living, 1);
  EXPECT_TRUE((*second.front()).owned.empty());
  second.clear();
  EXPECT_EQ(Cell::living, 0);
}

TEST(DeepShared, sharesItsValueBetweenCopies) {
  const DeepShared<int> original(7);
  const DeepShared<int> copy = original;
  EXPECT_EQ(&*original, &*copy);
}

TEST(DeepShared, survivesAssignmentToItself) {
  {
    auto list = listOf(2);
    const auto& alias = list;
    list = alias;
    EXPECT_EQ(Cell::living, 2);
  }
  EXPECT_EQ(Cell::living, 0);
}

TEST(DeepShared, isTakenApartWithoutRecursion) {
  onSmallStack([] {
    const auto list = listOf(100'000);
    EXPECT_EQ(Cell::living, 100'000);
  });
  EXPECT_EQ(Cell::living, 0);
}

TEST(DeepShared, leavesWhatOthersStillOwn) {
  const auto tail = listOf(10);
  {
    const DeepShared<Cell> first(Cell({tail, tail}));
    const DeepShared<Cell> second(Cell({first, tail}));
    EXPECT_EQ(Cell::living, 12);
  }
  EXPECT_EQ(Cell::living, 10);
}

TEST(DeepShared, isTakenApartOnceWhenSeveralThreadsLetGoAtOnce) {
  for (int round = 0; round < 20; ++round) {
    Cells owners{listOf(1000)};
    while (!(*owners.back()).owned.empty()) owners.push_back((*owners.back()).owned.front());
    std::vector<std::thread> threads;
    for (std::size_t part = 0; part < 4; ++part) {
      Cells share;
      for (std::size_t i = part; i < owners.size(); i += 4) share.push_back(owners[i]);
      threads.emplace_back([share = std::move(share)]() mutable { share.clear(); });
    }
    owners.clear();
    for (auto& thread : threads) thread.join();
    ASSERT_EQ(Cell::living, 0);
  }
}

}  // namespace
}  // namespace kite::test
