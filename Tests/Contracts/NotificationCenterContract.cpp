#include <Kite/Linux/LinuxPlatform.h>

#include "Support/FakeNotificationCenter.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

namespace kite::test {
namespace {

struct Fake {
  static std::shared_ptr<NotificationCenter> make() {
    return std::make_shared<FakeNotificationCenter>();
  }
};
struct Live {
  static std::shared_ptr<NotificationCenter> make() { return Linux::notificationCenter(); }
};

template <class Setting>
class NotificationCenterContract : public testing::Test {
 protected:
  std::shared_ptr<NotificationCenter> center = Setting::make();
};

using Settings = testing::Types<Fake, Live>;
TYPED_TEST_SUITE(NotificationCenterContract, Settings);

TYPED_TEST(NotificationCenterContract, runsABlockOncePerNotification) {
  int runs = 0;
  const auto observation = this->center->addObserver("name", [&runs] { ++runs; });
  this->center->post("name");
  EXPECT_EQ(runs, 1);
  this->center->post("name");
  EXPECT_EQ(runs, 2);
}

TYPED_TEST(NotificationCenterContract, runsTheBlocksOfAllObservers) {
  int first = 0;
  int second = 0;
  const auto one = this->center->addObserver("name", [&first] { ++first; });
  const auto two = this->center->addObserver("name", [&second] { ++second; });
  this->center->post("name");
  EXPECT_EQ(first, 1);
  EXPECT_EQ(second, 1);
}

TYPED_TEST(NotificationCenterContract, keepsNamesApart) {
  int runs = 0;
  const auto observation = this->center->addObserver("name", [&runs] { ++runs; });
  this->center->post("other");
  EXPECT_EQ(runs, 0);
}

TYPED_TEST(NotificationCenterContract, runsBlocksOnTheThreadThatPosts) {
  std::thread::id ranOn;
  const auto observation =
      this->center->addObserver("name", [&ranOn] { ranOn = std::this_thread::get_id(); });
  std::thread poster([this] { this->center->post("name"); });
  const auto posterID = poster.get_id();
  poster.join();
  EXPECT_EQ(ranOn, posterID);
}

TYPED_TEST(NotificationCenterContract, observesOnWhenTheObservationIsDropped) {
  int runs = 0;
  this->center->addObserver("name", [&runs] { ++runs; });
  this->center->post("name");
  EXPECT_EQ(runs, 1);
}

TYPED_TEST(NotificationCenterContract, stopsAfterRemoval) {
  int removed = 0;
  int kept = 0;
  const auto observation = this->center->addObserver("name", [&removed] { ++removed; });
  const auto other = this->center->addObserver("name", [&kept] { ++kept; });
  this->center->removeObserver(observation);
  this->center->post("name");
  EXPECT_EQ(removed, 0);
  EXPECT_EQ(kept, 1);
}

TYPED_TEST(NotificationCenterContract, ignoresARemovalOfTheUnknown) {
  int runs = 0;
  const auto observation = this->center->addObserver("name", [&runs] { ++runs; });
  const auto elsewhere = TypeParam::make()->addObserver("name", [] {});
  this->center->removeObserver(elsewhere);
  this->center->removeObserver(nullptr);
  this->center->post("name");
  EXPECT_EQ(runs, 1);
}

TYPED_TEST(NotificationCenterContract, letsABlockRemoveAnObserverThatWouldBeNext) {
  int runs = 0;
  std::shared_ptr<NotificationCenter::Observation> second;
  const auto first =
      this->center->addObserver("name", [&] { this->center->removeObserver(second); });
  second = this->center->addObserver("name", [&runs] { ++runs; });
  this->center->post("name");
  EXPECT_EQ(runs, 0);
}

TYPED_TEST(NotificationCenterContract, letsABlockAddAnObserverForTheNextTime) {
  int runs = 0;
  bool isAdded = false;
  const auto observation = this->center->addObserver("name", [&] {
    if (!std::exchange(isAdded, true)) this->center->addObserver("name", [&runs] { ++runs; });
  });
  this->center->post("name");
  EXPECT_EQ(runs, 0);
  this->center->post("name");
  EXPECT_EQ(runs, 1);
}

TYPED_TEST(NotificationCenterContract, letsGoOfARemovedBlock) {
  const auto held = std::make_shared<int>(0);
  auto observation = this->center->addObserver("name", [held] {});
  this->center->removeObserver(observation);
  observation.reset();
  EXPECT_EQ(held.use_count(), 1);
}

TYPED_TEST(NotificationCenterContract, servesSeveralThreads) {
  std::atomic<int> runs = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 3; ++t)
    threads.emplace_back([this, &runs] {
      for (int i = 0; i < 50; ++i) {
        const auto observation = this->center->addObserver("name", [&runs] { ++runs; });
        this->center->post("name");
        this->center->removeObserver(observation);
      }
    });
  for (auto& thread : threads) thread.join();
  EXPECT_GE(runs, 150);
}

}  // namespace
}  // namespace kite::test
