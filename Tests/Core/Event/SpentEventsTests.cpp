#include "Core/Event/SpentEvents.h"

#include "Support/Events.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

namespace kite::test {
namespace {

/// An event, and whether it still lives: as long as its user does.
class Witness {
 public:
  TrackedEvent event() {
    const auto user = std::make_shared<const User>();
    _user = user;
    return anEvent("A", Shared<User>(user));
  }
  bool isAlive() const { return !_user.expired(); }

 private:
  std::weak_ptr<const User> _user;
};

TEST(SpentEventsTests, liveUntilTheyAreDestroyed) {
  SpentEvents spent;
  Witness first;
  Witness second;
  spent.add(first.event());
  spent.add(second.event());
  EXPECT_TRUE(first.isAlive());
  EXPECT_TRUE(second.isAlive());
  spent.destroy();
  EXPECT_FALSE(first.isAlive());
  EXPECT_FALSE(second.isAlive());
}

TEST(SpentEventsTests, areDestroyedWithTheirHolder) {
  Witness witness;
  {
    SpentEvents spent;
    spent.add(witness.event());
  }
  EXPECT_FALSE(witness.isAlive());
}

TEST(SpentEventsTests, areNotKeptInCrowds) {
  SpentEvents spent;
  std::vector<Witness> witnesses(SpentEvents::mostKept + 1);
  for (auto& witness : witnesses) spent.add(witness.event());
  EXPECT_TRUE(witnesses.front().isAlive());
  EXPECT_FALSE(witnesses.back().isAlive());
  spent.destroy();
  spent.add(witnesses.back().event());
  EXPECT_TRUE(witnesses.back().isAlive());
}

TEST(SpentEventsTests, areDestroyedOnceByManyThreads) {
  SpentEvents spent;
  std::vector<Witness> witnesses(2000);
  {
    std::atomic<bool> isDone = false;
    const auto destroy = [&] {
      while (!isDone) spent.destroy();
    };
    const std::jthread one(destroy);
    const std::jthread other(destroy);
    for (auto& witness : witnesses) spent.add(witness.event());
    isDone = true;
  }
  spent.destroy();
  for (const auto& witness : witnesses) EXPECT_FALSE(witness.isAlive());
}

}  // namespace
}  // namespace kite::test
