#include "Queue/ReclaimList.h"

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
    return aChange(anEvent("A", Shared<User>(user)));
  }
  bool isAlive() const { return !_user.expired(); }

 private:
  std::weak_ptr<const User> _user;
};

std::size_t alive(const std::vector<Witness>& witnesses) {
  return static_cast<std::size_t>(std::ranges::count_if(witnesses, &Witness::isAlive));
}

TEST(ReclaimListTests, areDestroyedOneByOne) {
  ReclaimList spent;
  std::vector<Witness> witnesses(3);
  for (auto& witness : witnesses) spent.add(witness.change());
  for (std::size_t left = 3; left > 0; --left) {
    EXPECT_EQ(alive(witnesses), left);
    spent.reclaim();
  }
  EXPECT_EQ(alive(witnesses), 0U);
}

TEST(ReclaimListTests, areDestroyedFasterWhileTheyAreMany) {
  ReclaimList spent;
  std::vector<Witness> witnesses(ReclaimList::mostKept);
  for (auto& witness : witnesses) spent.add(witness.change());
  spent.reclaim();
  EXPECT_EQ(alive(witnesses), witnesses.size() - ReclaimList::destroyedOfACrowd);
}

TEST(ReclaimListTests, areDestroyedWithTheirHolder) {
  Witness witness;
  {
    ReclaimList spent;
    spent.add(witness.change());
  }
  EXPECT_FALSE(witness.isAlive());
}

TEST(ReclaimListTests, areNotKeptInCrowds) {
  ReclaimList spent;
  std::vector<Witness> witnesses(ReclaimList::mostKept + 1);
  for (auto& witness : witnesses) spent.add(witness.change());
  EXPECT_TRUE(witnesses.front().isAlive());
  EXPECT_FALSE(witnesses.back().isAlive());
  spent.reclaim();
  spent.add(witnesses.back().change());
  EXPECT_TRUE(witnesses.back().isAlive());
}

TEST(ReclaimListTests, areDestroyedOnceByManyThreads) {
  std::vector<Witness> witnesses(2000);
  {
    ReclaimList spent;
    std::atomic<bool> isDone = false;
    const auto destroy = [&] {
      while (!isDone) spent.reclaim();
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
