#include "Base/SharedCount.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace kite::test {
namespace {

TEST(SharedCountTests, countsWhatManyThreadsAdd) {
  SharedCount count;
  EXPECT_EQ(count.total(), 0U);
  std::vector<std::thread> threads;
  for (int i = 0; i < 20; ++i)
    threads.emplace_back([&count] {
      for (int k = 0; k < 1000; ++k) count.add();
    });
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(count.total(), 20'000U);
}

}  // namespace
}  // namespace kite::test
