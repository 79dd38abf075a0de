#include "Base/Published.h"

#include "Base/Semaphore.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <vector>

namespace {

thread_local long allocationsLeft = -1;  // until the one that fails; below 0: none does

bool isTurn() { return allocationsLeft >= 0 && allocationsLeft-- == 0; }

}  // namespace

[[gnu::noinline]] void* operator new(std::size_t size) {
  if (isTurn()) throw std::bad_alloc();
  if (void* memory = std::malloc(size == 0 ? 1 : size)) return memory;
  throw std::bad_alloc();
}
// Or a sanitizer would have its own, which does not go with this `delete`.
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return isTurn() ? nullptr : std::malloc(size == 0 ? 1 : size);
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace kite::test {
namespace {

/// A value that is there to be released.
struct Bundle {
  std::shared_ptr<int> part;
};

class PublishedTests : public testing::Test {
 protected:
  std::weak_ptr<int> set(int value) {
    auto part = std::make_shared<int>(value);
    const std::weak_ptr<int> watched = part;
    bundle.set(Bundle{std::move(part)});
    return watched;
  }

  Published<Bundle> bundle;
};

TEST_F(PublishedTests, givesNothingBeforeItIsSet) {
  EXPECT_FALSE(bundle.isSet());
  EXPECT_FALSE(bundle.read());
}

TEST_F(PublishedTests, givesTheLastValue) {
  set(1);
  set(2);
  EXPECT_TRUE(bundle.isSet());
  EXPECT_EQ(*bundle.read()->part, 2);
  EXPECT_EQ(**Published(std::make_shared<int>(3)).read(), 3);
}

TEST_F(PublishedTests, releasesTheValueOfBeforeAtOnceWhenNobodyReadsIt) {
  const auto first = set(1);
  EXPECT_FALSE(first.expired());
  set(2);
  EXPECT_TRUE(first.expired());
}

TEST_F(PublishedTests, keepsTheValueOfBeforeForWhoReadsIt) {
  const auto first = set(1);
  {
    const auto reading = bundle.read();
    set(2);
    EXPECT_EQ(*reading->part, 1);
    EXPECT_EQ(*bundle.read()->part, 2);
    EXPECT_FALSE(first.expired());
  }
  EXPECT_TRUE(first.expired());
}

TEST_F(PublishedTests, keepsItUntilTheOutermostReadingEnds) {
  const auto first = set(1);
  {
    const ReadSection section;
    static_cast<void>(*bundle.read()->part);
    set(2);
    static_cast<void>(*bundle.read()->part);
    EXPECT_FALSE(first.expired());
  }
  EXPECT_TRUE(first.expired());
}

TEST_F(PublishedTests, keepsItForReadersOnOtherThreadsTheLastOfWhichReleasesIt) {
  const auto first = set(1);
  Semaphore isRead;
  Semaphore mayEnd;
  std::thread reader([&] {
    const auto reading = bundle.read();
    isRead.release();
    mayEnd.acquire();
    EXPECT_EQ(*reading->part, 1);
  });
  isRead.acquire();
  const auto second = set(2);
  set(3);
  EXPECT_FALSE(first.expired());
  mayEnd.release();
  reader.join();
  EXPECT_TRUE(first.expired());
  EXPECT_TRUE(second.expired());
}

TEST_F(PublishedTests, releasesTheLastValueWithItself) {
  std::weak_ptr<int> watched;
  {
    Published<std::shared_ptr<int>> holder;
    holder.set(std::make_shared<int>(1));
    watched = *holder.read();
  }
  EXPECT_TRUE(watched.expired());
}

TEST_F(PublishedTests, aSetThatFindsNoMemoryLeavesTheValueOfBefore) {
  int failures = 0;
  for (bool hasFailed = true; hasFailed;) {
    const auto first = set(1);
    auto part = std::make_shared<int>(2);
    allocationsLeft = failures;
    try {
      bundle.set(Bundle{std::move(part)});
      hasFailed = false;
    } catch (const std::bad_alloc&) {
      ++failures;
      EXPECT_EQ(*bundle.read()->part, 1);
      EXPECT_FALSE(first.expired());
    }
    allocationsLeft = -1;
  }
  EXPECT_GT(failures, 0);
  EXPECT_EQ(*bundle.read()->part, 2);
}

TEST_F(PublishedTests, threadsReadWholeValuesWhileOthersReplaceThem) {
  struct Counted {
    explicit Counted(std::atomic<int>& count) : alive(count) { ++alive; }
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;
    ~Counted() {
      text.clear();
      --alive;
    }
    std::atomic<int>& alive;
    std::string text = "a text that is longer than a short one";
  };
  std::atomic<int> alive = 0;
  Published<std::unique_ptr<const Counted>> holder;
  holder.set(std::make_unique<const Counted>(alive));
  std::atomic<bool> isDone = false;
  std::atomic<int> torn = 0;
  std::vector<std::thread> readers;
  for (int i = 0; i < 3; ++i)
    readers.emplace_back([&] {
      while (!isDone) {
        const auto reading = holder.read();
        if ((*reading)->text.size() != 38) ++torn;
      }
    });
  for (int i = 0; i < 2000; ++i) holder.set(std::make_unique<const Counted>(alive));
  isDone = true;
  for (auto& reader : readers) reader.join();
  EXPECT_EQ(torn, 0);
  EXPECT_EQ(alive, 1);
}

}  // namespace
}  // namespace kite::test
