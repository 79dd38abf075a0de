#include <Kite/Base/Date.h>
#include <Kite/Base/Result.h>
#include <Kite/Base/Shared.h>

#include "Base/Guarded.h"
#include "Base/LateInit.h"
#include "Base/Weakly.h"
#include "Support/CatchFatalErrors.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace kite::test {
namespace {

TEST(LateInit, stopsTheProcessWhenReadTooEarly) {
  const LateInit<int> holder("too early", {"Holder", "", 9});
  const auto raised = fatalErrorOf([&] { static_cast<void>(holder.get()); });
  ASSERT_TRUE(raised);
  EXPECT_EQ(raised->message, "too early");
  EXPECT_STREQ(raised->where.file, "Holder");
  EXPECT_EQ(raised->where.line, 9U);
}

TEST(LateInit, givesTheLatestValue) {
  LateInit<int> holder("too early", {});
  holder.set(1);
  holder.set(2);
  EXPECT_EQ(holder.get(), 2);
}

TEST(Guarded, isChangedByOneThreadAtATime) {
  Guarded<int> count(0);
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&count] {
      for (int turn = 0; turn < 1000; ++turn) count.with([](int& value) { ++value; });
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(count.copy(), 4000);
}

TEST(Guarded, releasesItsLockBeforeTheOldValueDies) {
  struct Holder {
    Guarded<std::shared_ptr<Holder>>* owner = nullptr;
    ~Holder() {
      if (owner != nullptr) static_cast<void>(owner->copy());  // deadlocks under the lock
    }
  };
  Guarded<std::shared_ptr<Holder>> guarded;
  const auto old = std::make_shared<Holder>();
  old->owner = &guarded;
  guarded.set(old);
  guarded.set(nullptr);
  EXPECT_EQ(old.use_count(), 1);
}

TEST(Weakly, runsItsBodyOnlyWhileTheObjectLives) {
  auto object = std::make_shared<int>(0);
  auto add = weakly(std::weak_ptr(object), [](int& value, int amount) { value += amount; });
  add(3);
  EXPECT_EQ(*object, 3);
  object.reset();
  add(4);
}

TEST(Weakly, doesNotKeepItsObjectAlive) {
  auto object = std::make_shared<int>(0);
  const std::weak_ptr<int> observer = object;
  const auto closure = weakly(observer, [](int&) {});
  object.reset();
  EXPECT_TRUE(observer.expired());
}

TEST(Shared, isEqualToAnEqualValueElsewhere) {
  const Shared<std::string> value("text");
  const Shared<std::string> copy = value;
  const Shared<std::string> twin("text");
  EXPECT_EQ(value, twin);
  EXPECT_TRUE(value.isSame(copy));
  EXPECT_FALSE(value.isSame(twin));
  EXPECT_FALSE(value == Shared<std::string>("other"));
}

TEST(Shared, isNotEmptiedByAMove) {
  Shared<std::string> value("text");
  const Shared<std::string> moved = std::move(value);
  EXPECT_EQ(*value, "text");
  EXPECT_TRUE(moved.isSame(value));
}

TEST(Date, countsFromTheReferenceDateOfStoredRecords) {
  EXPECT_EQ(Date::sinceReferenceDate(1.5), Date{978'307'201.5});
  EXPECT_EQ(Date{978'307'201.5}.secondsSinceReferenceDate(), 1.5);
  EXPECT_EQ(Date{5} - Date{3.5}, 1.5);
  EXPECT_EQ(Date{5} + 0.5, Date{5.5});
}

TEST(Result, holdsAValueOrAReason) {
  const Result<int, std::string> value = 3;
  const Result<int, std::string> failure = Failure<std::string>{"because"};
  ASSERT_TRUE(value);
  EXPECT_EQ(*value, 3);
  ASSERT_FALSE(failure);
  EXPECT_EQ(failure.error(), "because");
}

}  // namespace
}  // namespace kite::test
