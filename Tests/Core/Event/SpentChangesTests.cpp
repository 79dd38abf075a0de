#include "Core/Event/SpentChanges.h"

#include "Support/Events.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <thread>
#include <vector>

namespace kite::test {
namespace {

/// A change, and whether it still lives: as long as its user does.
class Witness {
 public:
  std::unique_ptr<PendingChange> change() {
    const auto user = std::make_shared<const User>();
    _user = user;
    return std::make_unique<PendingChange>(anEvent("A", Shared<User>(user)));
  }
  bool isAlive() const { return !_user.expired(); }

 private:
  std::weak_ptr<const User> _user;
};

TEST(SpentChangesTests, liveUntilTheyAreDestroyed) {
  SpentChanges spent;
  Witness first;
  Witness second;
  spent.add(first.change());
  spent.add(second.change());
  EXPECT_TRUE(first.isAlive());
  EXPECT_TRUE(second.isAlive());
  spent.destroySome();
  EXPECT_FALSE(first.isAlive());
  EXPECT_FALSE(second.isAlive());
}

TEST(SpentChangesTests, areDestroyedWithTheirHolder) {
  Witness witness;
  {
    SpentChanges spent;
    spent.add(witness.change());
  }
  EXPECT_FALSE(witness.isAlive());
}

TEST(SpentChangesTests, areDestroyedAFewAtATime) {
  constexpr std::size_t few = SpentChanges::destroyedAtOnce;
  SpentChanges spent;
  std::vector<Witness> witnesses(2 * few + 1);
  const auto alive = [&] { return std::ranges::count_if(witnesses, &Witness::isAlive); };
  for (auto& witness : witnesses) spent.add(witness.change());
  spent.destroySome();
  EXPECT_EQ(alive(), few + 1);
  spent.destroySome();
  EXPECT_EQ(alive(), 1);
  spent.destroySome();
  EXPECT_EQ(alive(), 0);
}

TEST(SpentChangesTests, areNotKeptInCrowds) {
  SpentChanges spent;
  std::vector<Witness> witnesses(SpentChanges::mostKept + 1);
  for (auto& witness : witnesses) spent.add(witness.change());
  EXPECT_TRUE(witnesses.front().isAlive());
  EXPECT_FALSE(witnesses.back().isAlive());
  spent.destroySome();
  spent.add(witnesses.back().change());
  EXPECT_TRUE(witnesses.back().isAlive());
}

TEST(SpentChangesTests, areDestroyedOnceByManyThreads) {
  std::vector<Witness> witnesses(2000);
  {
    SpentChanges spent;
    std::atomic<bool> isDone = false;
    const auto destroy = [&] {
      while (!isDone) spent.destroySome();
    };
    const std::jthread one(destroy);
    const std::jthread other(destroy);
    for (auto& witness : witnesses) spent.add(witness.change());
    isDone = true;
  }
  for (const auto& witness : witnesses) EXPECT_FALSE(witness.isAlive());
}

}  // namespace
}  // namespace kite::test
