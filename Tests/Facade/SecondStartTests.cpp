#include <Kite/Kite.h>

#include "Profile/UserInfo.h"
#include "Support/TestWorld.h"

#include <gmock/gmock.h>

#include <atomic>
#include <map>
#include <string>
#include <thread>
#include <vector>

namespace kite::test {
namespace {

using testing::AllOf;
using testing::Each;
using testing::IsEmpty;
using testing::SizeIs;

/// A facade with its real managers that is started with one world and then with another.
class SecondStartTests : public testing::Test {
 protected:
  SecondStartTests() {
    for (auto* world : {&first, &second}) world->network.respond(answers(500));
    first.secrets->put("Kite-User-Info", R"({"data":{"world":"first","old":true}})");
    second.secrets->put("Kite-User-Info", R"({"data":{"world":"second"}})");
    second.drawnBundleUUIDs = 100;  // or both worlds would draw the same
  }

  /// Its parts, none of which the world itself holds any longer.
  std::map<std::string, std::weak_ptr<const void>> startWithAllOfTheFirst() {
    kite.start(first.dependencies());
    const auto parts = partsOf(first);
    first.keyValues.reset();
    first.secrets.reset();
    first.usher.reset();
    first.time.reset();
    first.storageQueue.reset();
    first.syncQueue.reset();
    first.center.reset();
    first.application.reset();
    first.mainThread.reset();
    first.whisker.reset();
    first.device.reset();
    return parts;
  }
  static std::map<std::string, std::weak_ptr<const void>> partsOf(const TestWorld& world) {
    return {{"key-value store", world.keyValues},
            {"secrets store", world.secrets},
            {"identity provider", world.usher},
            {"scheduler", world.time},
            {"storage queue", world.storageQueue},
            {"sync queue", world.syncQueue},
            {"notification center", world.center},
            {"application", world.application},
            {"main thread", world.mainThread},
            {"telemetry", world.whisker},
            {"device", world.device}};
  }
  static std::vector<std::string> left(
      const std::map<std::string, std::weak_ptr<const void>>& parts) {
    std::vector<std::string> names;
    for (const auto& [name, part] : parts)
      if (!part.expired()) names.push_back(name);
    return names;
  }
  static std::string worldOf(const JSONValue::Object& event) {
    return *event.at("user")->object()->at("info")->object()->at("world")->string();
  }

  TestWorld first;
  TestWorld second;
  KiteManagerImpl kite{first.system.system()};
};

TEST_F(SecondStartTests, releasesEveryPartOfTheFirstBundle) {
  const auto parts = startWithAllOfTheFirst();
  EXPECT_THAT(left(parts), SizeIs(parts.size()));
  kite.start(second.dependencies());
  EXPECT_THAT(left(parts), IsEmpty());
}

TEST_F(SecondStartTests, releasesItAlsoAfterEventsAndSessionsOfBothBundles) {
  const auto parts = startWithAllOfTheFirst();
  kite.trackUserAction("a", {{"n", 1}});
  kite.addSessionData("key", 1);
  kite.setAnalyticsTrackingConsent(false);
  kite.start(second.dependencies());
  kite.trackUserAction("a", {{"n", 1}});
  kite.addSessionData("key", 1);
  EXPECT_THAT(left(parts), IsEmpty());
}

TEST_F(SecondStartTests, eventsCarryTheProfileOfTheSecondStore) {
  kite.start(first.dependencies());
  kite.trackUserAction("a", {});
  kite.start(second.dependencies());
  kite.trackUserAction("b", {});
  kite.trackUserAction("c", {});
  const auto actions = second.flushedEvents("UserAction");
  ASSERT_THAT(actions, SizeIs(2));
  for (const auto& action : actions) EXPECT_EQ(worldOf(action), "second");
  EXPECT_FALSE(second.secrets->text("Kite-User-Info").find("\"old\"") != std::string::npos);
}

TEST_F(SecondStartTests, theSessionOfTheFirstStoreStaysInItAndTheSecondOpensItsOwn) {
  kite.start(first.dependencies());
  const auto session = kite.currentSessionId();
  kite.addSessionData("world", "first");
  kite.start(second.dependencies());
  EXPECT_NE(kite.currentSessionId(), session);
  EXPECT_TRUE(kite.sessionDataKiteValue().empty());
  EXPECT_NE(first.keyValues->text("Kite-Last-Session").find(session.text()), std::string::npos);
  EXPECT_THAT(second.flushedEvents("Session"), SizeIs(1)) << "nothing crashed in the second store";
}

TEST_F(SecondStartTests, readsTheConsentsOfTheSecondStore) {
  second.keyValues->put("kite_tracking_consent", R"({"analytics":false,"profiling":false})");
  kite.start(first.dependencies());
  kite.start(second.dependencies());
  kite.trackUserAction("a", {});
  EXPECT_THAT(second.flushedEvents("UserAction"), IsEmpty());
}

// Both worlds share their queues: what waits on one is made by the storage as it stands.
TEST_F(SecondStartTests, mayComeWhileOtherThreadsTrack) {
  second.storageQueue = first.storageQueue;
  second.syncQueue = first.syncQueue;
  const auto queue = first.storageQueue;
  auto parts = startWithAllOfTheFirst();
  parts.erase("storage queue");
  parts.erase("sync queue");
  std::atomic<bool> isDone = false;
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i)
    threads.emplace_back([&] {
      while (!isDone) {
        kite.trackUserAction("during", {{"n", 1}});
        kite.addUserInfo("key", 1);
        kite.addSessionData("key", 1);
        static_cast<void>(kite.keychainId());
      }
    });
  kite.start(second.dependencies());
  isDone = true;
  for (auto& thread : threads) thread.join();
  EXPECT_THAT(left(parts), IsEmpty());
  kite.trackUserAction("after", {});
  const auto actions = second.flushedEvents("UserAction");
  ASSERT_FALSE(actions.empty());
  EXPECT_EQ(worldOf(actions.back()), "second");
  EXPECT_EQ(second.secrets->text("Kite-User-Info").find("\"old\""), std::string::npos);
}

}  // namespace
}  // namespace kite::test
