#include <Kite/Linux/LinuxPlatform.h>

#include <gtest/gtest.h>
#include <pthread.h>

#include <chrono>
#include <csignal>
#include <memory>
#include <new>
#include <semaphore>
#include <string>
#include <thread>
#include <vector>

namespace kite::Linux {
namespace {

// Keeps a queue's thread busy until it is let go.
struct Blockade {
  std::binary_semaphore begun{0};
  std::binary_semaphore released{0};
  std::binary_semaphore ended{0};

  static void put(Tempra::Queue& queue, const std::shared_ptr<Blockade>& blockade) {
    queue.run([blockade] {
      blockade->begun.release();
      blockade->released.acquire();
      blockade->ended.release();
    });
    blockade->begun.acquire();
  }
};

TEST(WorkerQueue, endsWithoutWaitingForARunningBlock) {
  const auto blockade = std::make_shared<Blockade>();
  auto queue = workerQueue("blocked");
  Blockade::put(*queue, blockade);
  queue.reset();  // would hang here
  blockade->released.release();
  blockade->ended.acquire();
}

TEST(WorkerQueue, dropsBlocksThatHaveNotBegunWhenItEnds) {
  const auto blockade = std::make_shared<Blockade>();
  const auto held = std::make_shared<int>(0);
  bool hasRun = false;
  auto queue = workerQueue("dropping");
  Blockade::put(*queue, blockade);
  queue->run([held, &hasRun] { hasRun = true; });
  queue.reset();
  EXPECT_EQ(held.use_count(), 1);
  blockade->released.release();
  blockade->ended.acquire();
  EXPECT_FALSE(hasRun);
}

TEST(WorkerQueue, dropsTheRestOfABatchWhenItEndsWithinIt) {
  const auto blockade = std::make_shared<Blockade>();
  const auto inBatch = std::make_shared<Blockade>();
  const auto held = std::make_shared<int>(0);
  auto queue = workerQueue("dropping");
  Blockade::put(*queue, blockade);
  queue->run([inBatch] {
    inBatch->begun.release();
    inBatch->released.acquire();
  });
  for (int i = 0; i < 100; ++i) queue->run([held] {});
  blockade->released.release();
  inBatch->begun.acquire();
  queue.reset();
  EXPECT_EQ(held.use_count(), 1);
  inBatch->released.release();
}

TEST(WorkerQueue, mayEndWhileABlockWaitsForMemory) {
  const auto held = std::make_shared<int>(0);
  std::binary_semaphore tried(0);
  auto queue = workerQueue("waiting");
  queue->run([held, &tried] {
    tried.release();
    throw std::bad_alloc();
  });
  tried.acquire();
  queue.reset();
  while (held.use_count() > 1) std::this_thread::yield();
}

TEST(WorkerQueue, mayEndWithinABlockOfItsOwn) {
  struct Owner {
    std::shared_ptr<Tempra::Queue> queue = workerQueue("ending");
    std::binary_semaphore isOnlyOne{0};
    std::binary_semaphore ended{0};
  };
  const auto owner = std::make_shared<Owner>();
  owner->queue->run([owner] {
    owner->isOnlyOne.acquire();
    owner->queue.reset();
    owner->ended.release();
  });
  owner->isOnlyOne.release();
  owner->ended.acquire();
  EXPECT_EQ(owner->queue, nullptr);
}

TEST(WorkerQueue, returnsWhileABlockIsRunning) {
  const auto blockade = std::make_shared<Blockade>();
  const auto queue = workerQueue("busy");
  Blockade::put(*queue, blockade);
  std::binary_semaphore ran(0);
  queue->run([&ran] { ran.release(); });
  EXPECT_FALSE(ran.try_acquire());
  blockade->released.release();
  ran.acquire();
}

TEST(WorkerQueue, runsItsBlocksOnOneThreadOfItsOwn) {
  const auto queue = workerQueue("own");
  std::vector<std::thread::id> threads;
  std::binary_semaphore done(0);
  for (int i = 0; i < 3; ++i)
    queue->run([&threads] { threads.push_back(std::this_thread::get_id()); });
  queue->run([&done] { done.release(); });
  done.acquire();
  EXPECT_NE(threads[0], std::this_thread::get_id());
  EXPECT_EQ(threads, std::vector<std::thread::id>(3, threads[0]));
}

TEST(WorkerQueue, queuesDoNotWaitForEachOther) {
  const auto blockade = std::make_shared<Blockade>();
  const auto blocked = workerQueue("blocked");
  const auto free = workerQueue("free");
  Blockade::put(*blocked, blockade);
  std::binary_semaphore done(0);
  free->run([&done] { done.release(); });
  done.acquire();
  blockade->released.release();
}

TEST(WorkerQueue, namesItsThreadAndCutsALongName) {
  const auto queue = workerQueue("a name of twenty-four.");
  std::string name(16, '\0');
  std::binary_semaphore done(0);
  queue->run([&] {
    pthread_getname_np(pthread_self(), name.data(), name.size());
    done.release();
  });
  done.acquire();
  EXPECT_EQ(name.c_str(), std::string("a name of twent"));
}

TEST(WorkerQueue, takesNoSignalOnItsThreadButThoseOfAFault) {
  const auto queue = workerQueue("deaf");
  sigset_t mask;
  std::binary_semaphore done(0);
  queue->run([&] {
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    done.release();
  });
  done.acquire();
  for (const int asynchronous : {SIGPIPE, SIGTERM, SIGINT, SIGALRM, SIGCHLD, SIGUSR1})
    EXPECT_TRUE(sigismember(&mask, asynchronous)) << asynchronous;
  for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL})
    EXPECT_FALSE(sigismember(&mask, fault)) << fault;
}

TEST(WorkerQueue, leavesTheSubmittersSignalMaskAsItWas) {
  sigset_t before;
  sigset_t after;
  pthread_sigmask(SIG_SETMASK, nullptr, &before);
  workerQueue("deaf")->run([] {});
  pthread_sigmask(SIG_SETMASK, nullptr, &after);
  for (int signal = 1; signal < SIGRTMIN; ++signal)
    EXPECT_EQ(sigismember(&before, signal), sigismember(&after, signal)) << signal;
}

TEST(WorkerQueue, wakesUpForEveryBlockThatComesAfterAPause) {
  const auto queue = workerQueue("pausing");
  for (int round = 0; round < 20; ++round) {
    std::binary_semaphore done(0);
    queue->run([&done] { done.release(); });
    done.acquire();
    std::this_thread::sleep_for(std::chrono::microseconds(20 * round));
  }
}

/// The threads on which blocks have run, in order.
class Witness {
 public:
  Tempra::Block block() {
    return [threads = _threads] { threads->push_back(std::this_thread::get_id()); };
  }
  const std::vector<std::thread::id>& threads() const { return *_threads; }

 private:
  std::shared_ptr<std::vector<std::thread::id>> _threads =
      std::make_shared<std::vector<std::thread::id>>();
};

TEST(WorkerQueue, leavesWhatMayWaitToTheThreadThatAsksForIt) {
  const auto queue = workerQueue("patient");
  Witness witness;
  for (int i = 0; i < 3; ++i) queue->runSoon(witness.block());
  queue->runWaiting();
  EXPECT_EQ(witness.threads(), std::vector<std::thread::id>(3, std::this_thread::get_id()));
}

TEST(WorkerQueue, runsWhatWaitsBeforeABlockThatDoesNot) {
  const auto queue = workerQueue("patient");
  Witness witness;
  for (int i = 0; i < 3; ++i) queue->runSoon(witness.block());
  std::binary_semaphore done(0);
  queue->run([&done] { done.release(); });
  done.acquire();
  ASSERT_EQ(witness.threads().size(), 3U);
  EXPECT_NE(witness.threads()[0], std::this_thread::get_id());
}

TEST(WorkerQueue, runsByItselfWhatWaitsWhenThatIsMuch) {
  const auto queue = workerQueue("patient");
  std::counting_semaphore<> ran(0);
  constexpr int many = 1024;
  for (int i = 0; i < many; ++i) queue->runSoon([&ran] { ran.release(); });
  for (int i = 0; i < many / 2; ++i) ran.acquire();
  queue->runWaiting();
  for (int i = 0; i < many / 2; ++i) ran.acquire();
}

TEST(WorkerQueue, leavesWhatWaitsToABlockThatIsRunning) {
  const auto blockade = std::make_shared<Blockade>();
  const auto queue = workerQueue("patient");
  Blockade::put(*queue, blockade);
  std::binary_semaphore ran(0);
  queue->runSoon([&ran] { ran.release(); });
  queue->runWaiting();
  EXPECT_FALSE(ran.try_acquire());
  blockade->released.release();
  ran.acquire();
}

TEST(WorkerQueue, goesOnByItselfWithWhatCameWhileAnotherThreadRanItsBlocks) {
  const auto queue = workerQueue("patient");
  std::binary_semaphore ran(0);
  auto runner = std::thread::id();
  queue->runSoon([&] {
    queue->run([&] {
      runner = std::this_thread::get_id();
      ran.release();
    });
    queue->runWaiting();  // nothing, as this block is running
    EXPECT_FALSE(ran.try_acquire());
  });
  queue->runWaiting();
  ran.acquire();
  EXPECT_NE(runner, std::this_thread::get_id());
}

TEST(WorkerQueue, leavesABlockThatFoundNoMemoryToItsOwnThreadAndAllOthersBehindIt) {
  const auto queue = workerQueue("patient");
  std::vector<std::string> order;
  std::binary_semaphore done(0);
  queue->runSoon([&order, trial = 0]() mutable {
    order.push_back("trial " + std::to_string(++trial));
    if (trial < 2) throw std::bad_alloc();
  });
  queue->runSoon([&] {
    order.push_back("other");
    done.release();
  });
  queue->runWaiting();
  done.acquire();
  EXPECT_EQ(order, (std::vector<std::string>{"trial 1", "trial 2", "other"}));
}

TEST(WorkerQueue, mayEndWithinABlockThatWaited) {
  auto queue = workerQueue("ending");
  const auto held = std::make_shared<int>(0);
  queue->runSoon([&queue] { queue.reset(); });
  queue->runSoon([held] {});
  auto* const running = queue.get();
  running->runWaiting();
  EXPECT_EQ(queue, nullptr);
  EXPECT_EQ(held.use_count(), 1);
}

TEST(WorkerQueue, dropsWhatWaitsWhenItEnds) {
  const auto held = std::make_shared<int>(0);
  auto queue = workerQueue("ending");
  queue->runSoon([held] {});
  queue.reset();
  EXPECT_EQ(held.use_count(), 1);
}

}  // namespace
}  // namespace kite::Linux
