#include <Kite/Linux/LinuxPlatform.h>

#include "Support/Queues.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <new>
#include <semaphore>
#include <string>
#include <thread>
#include <vector>

namespace kite::test {
namespace {

struct OnImmediateQueue {
  std::shared_ptr<Tempra::Queue> queue = std::make_shared<ImmediateQueue>();
  void finish() {}
};

struct OnManualQueue {
  std::shared_ptr<ManualQueue> manual = std::make_shared<ManualQueue>();
  std::shared_ptr<Tempra::Queue> queue = manual;
  void finish() { manual->drain(); }
};

struct OnWorkerQueue {
  std::shared_ptr<Tempra::Queue> queue = Linux::workerQueue("contract");
  // Twice, because a block may have submitted another behind the first.
  void finish() {
    for (int round = 0; round < 2; ++round) {
      std::binary_semaphore done(0);
      queue->run([&done] { done.release(); });
      done.acquire();
    }
  }
};

template <class Setting>
class QueueContract : public testing::Test {
 protected:
  Setting setting;
};

using Settings = testing::Types<OnImmediateQueue, OnManualQueue, OnWorkerQueue>;
TYPED_TEST_SUITE(QueueContract, Settings);

TYPED_TEST(QueueContract, runsBlocksInTheOrderOfSubmission) {
  std::vector<int> order;
  std::vector<int> expected;
  for (int i = 0; i < 1000; ++i) {
    expected.push_back(i);
    this->setting.queue->run([&order, i] { order.push_back(i); });
  }
  this->setting.finish();
  EXPECT_EQ(order, expected);
}

TYPED_TEST(QueueContract, keepsTheOrderOfEachOfSeveralSubmitters) {
  std::vector<std::vector<int>> seen(3);
  std::vector<std::thread> submitters;
  for (std::size_t s = 0; s < seen.size(); ++s)
    submitters.emplace_back([this, s, &seen] {
      for (int i = 0; i < 300; ++i)
        this->setting.queue->run([s, i, &seen] { seen[s].push_back(i); });
    });
  for (auto& submitter : submitters) submitter.join();
  this->setting.finish();
  for (const auto& order : seen) {
    ASSERT_EQ(order.size(), 300u);
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
  }
}

TYPED_TEST(QueueContract, keepsBlocksThatMayWaitInOneOrderWithTheOthers) {
  std::vector<int> order;
  std::vector<int> expected;
  for (int i = 0; i < 1000; ++i) {
    expected.push_back(i);
    const auto block = [&order, i] { order.push_back(i); };
    i % 7 == 0 ? this->setting.queue->run(block) : this->setting.queue->runSoon(block);
  }
  this->setting.finish();
  EXPECT_EQ(order, expected);
}

TYPED_TEST(QueueContract, keepsTheOrderOfSeveralSubmittersWhileOthersRunWhatWaits) {
  std::vector<std::vector<int>> seen(3);
  std::atomic<int> running = 0;
  std::atomic<int> most = 0;
  std::vector<std::thread> submitters;
  for (std::size_t s = 0; s < seen.size(); ++s)
    submitters.emplace_back([&, s] {
      for (int i = 0; i < 1000; ++i) {
        this->setting.queue->runSoon([&, s, i] {
          const int now = ++running;
          if (now > most) most = now;
          seen[s].push_back(i);
          --running;
        });
        if (i % 31 == 0) this->setting.queue->run([] {});
        if (i % 17 == 0) this->setting.queue->runWaiting();
      }
    });
  for (auto& submitter : submitters) submitter.join();
  this->setting.finish();
  for (const auto& order : seen) {
    ASSERT_EQ(order.size(), 1000u);
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
  }
  EXPECT_EQ(most, 1);
}

TYPED_TEST(QueueContract, neverRunsTwoBlocksAtOnce) {
  std::atomic<int> running = 0;
  std::atomic<int> most = 0;
  std::vector<std::thread> submitters;
  for (int s = 0; s < 3; ++s)
    submitters.emplace_back([this, &running, &most] {
      for (int i = 0; i < 300; ++i)
        this->setting.queue->run([&running, &most] {
          const int now = ++running;
          if (now > most) most = now;
          std::this_thread::yield();
          --running;
        });
    });
  for (auto& submitter : submitters) submitter.join();
  this->setting.finish();
  EXPECT_EQ(most, 1);
}

TYPED_TEST(QueueContract, runsABlockThatARunningOneSubmitsAfterIt) {
  std::vector<std::string> order;
  this->setting.queue->run([&] {
    this->setting.queue->run([&order] { order.push_back("nested"); });
    order.push_back("outer ends");
  });
  this->setting.finish();
  EXPECT_EQ(order, (std::vector<std::string>{"outer ends", "nested"}));
}

TYPED_TEST(QueueContract, runsABlockAgainThatFoundNoMemoryBeforeAllOthers) {
  std::vector<std::string> order;
  this->setting.queue->run([&order, trial = 0]() mutable {
    order.push_back("trial " + std::to_string(++trial));
    if (trial < 3) throw std::bad_alloc();
  });
  this->setting.queue->run([&order] { order.push_back("other"); });
  this->setting.finish();
  EXPECT_EQ(order, (std::vector<std::string>{"trial 1", "trial 2", "trial 3", "other"}));
}

TYPED_TEST(QueueContract, letsGoOfABlockThatHasRun) {
  const auto held = std::make_shared<int>(0);
  this->setting.queue->run([held] {});
  this->setting.finish();
  EXPECT_EQ(held.use_count(), 1);
}

TEST(ImmediateQueue, isAsGoodAsNewAfterABlockThatThrew) {
  ImmediateQueue queue;
  EXPECT_THROW(queue.run([] { throw 1; }), int);
  int runs = 0;
  queue.run([&runs] { ++runs; });
  EXPECT_EQ(runs, 1);
}

TEST(ManualQueue, runsOneBlockAtATime) {
  ManualQueue queue;
  int runs = 0;
  queue.run([&runs] { ++runs; });
  queue.run([&runs] { ++runs; });
  EXPECT_EQ(queue.size(), 2u);
  EXPECT_TRUE(queue.runOne());
  EXPECT_EQ(runs, 1);
  queue.drain();
  EXPECT_EQ(runs, 2);
  EXPECT_FALSE(queue.runOne());
}

}  // namespace
}  // namespace kite::test
