#include "Base/MPSCStack.h"

#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <vector>

namespace kite::test {
namespace {

struct Numbered {
  int thread = 0;
  int number = 0;
  std::shared_ptr<int> witness = nullptr;
  Numbered* next = nullptr;
};

using Before = MPSCStack<Numbered>::Before;

std::unique_ptr<Numbered> numbered(int number) {
  return std::make_unique<Numbered>(Numbered{.number = number});
}

TEST(MPSCStack, knowsTheFirstSinceAllWereTaken) {
  MPSCStack<Numbered> handOver;
  EXPECT_EQ(handOver.add(numbered(1)), Before::nothing);
  EXPECT_EQ(handOver.add(numbered(2)), Before::patient);
  handOver.takeAll();
  EXPECT_EQ(handOver.add(numbered(3)), Before::nothing);
}

TEST(MPSCStack, staysUrgentOnceANodeWasUntilAllWereTaken) {
  MPSCStack<Numbered> handOver;
  EXPECT_FALSE(handOver.isPatient());
  handOver.add(numbered(1));
  EXPECT_TRUE(handOver.isPatient());
  handOver.add(numbered(2), /*isUrgent=*/true);
  EXPECT_FALSE(handOver.isPatient());
  EXPECT_EQ(handOver.add(numbered(3)), Before::urgent);
  auto chain = handOver.takeAll();
  EXPECT_EQ(chain.takeFirst()->number, 3);
  handOver.add(numbered(4));
  EXPECT_TRUE(handOver.isPatient());
}

TEST(MPSCStack, givesTheNewestFirstOrTheOldest) {
  MPSCStack<Numbered> handOver;
  for (int i = 1; i <= 3; ++i) handOver.add(numbered(i));
  auto newestFirst = handOver.takeAll();
  EXPECT_EQ(newestFirst.takeFirst()->number, 3);
  auto oldestFirst = std::move(newestFirst).reversed();
  EXPECT_EQ(oldestFirst.takeFirst()->number, 1);
  EXPECT_EQ(oldestFirst.takeFirst()->number, 2);
  EXPECT_TRUE(oldestFirst.empty());
}

TEST(MPSCStack, destroysWhatNobodyTook) {
  const auto witness = std::make_shared<int>(0);
  {
    MPSCStack<Numbered> handOver;
    for (int i = 0; i < 3; ++i)
      handOver.add(std::make_unique<Numbered>(Numbered{.witness = witness}));
    EXPECT_EQ(witness.use_count(), 4);
  }
  EXPECT_EQ(witness.use_count(), 1);
}

TEST(MPSCStack, keepsTheOrderOfEachThread) {
  constexpr int threads = 3;
  constexpr int each = 20'000;
  MPSCStack<Numbered> handOver;
  std::vector<std::jthread> adding;
  for (int thread = 0; thread < threads; ++thread)
    adding.emplace_back([thread, &handOver] {
      for (int i = 0; i < each; ++i)
        handOver.add(std::make_unique<Numbered>(Numbered{.thread = thread, .number = i}));
    });
  std::vector<int> seen(threads);
  for (int count = 0; count < threads * each;) {
    for (auto chain = handOver.takeAll().reversed(); !chain.empty(); ++count) {
      const auto node = chain.takeFirst();
      ASSERT_EQ(node->number, seen[static_cast<std::size_t>(node->thread)]++);
    }
  }
}

}  // namespace
}  // namespace kite::test
