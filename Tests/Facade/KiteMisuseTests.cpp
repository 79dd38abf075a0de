#include <Kite/Kite.h>

#include "Facade/KiteState.h"
#include "Support/CatchFatalErrors.h"
#include "Support/TestWorld.h"

#include <gmock/gmock.h>

#include <functional>
#include <string>
#include <vector>

namespace kite::test {
namespace {

constexpr std::uint64_t tooLarge = std::uint64_t{1} << 63U;
constexpr const char* noJSONForm =
    "A number above the largest signed 64-bit integer has no JSON form";

/// Every operation that takes values, given a number that has no JSON form.
class KiteOversizedNumberTests : public testing::Test {
 protected:
  using Operation = std::function<void(KiteManager&)>;

  TestWorld world;
  const std::vector<std::pair<const char*, Operation>> operations{
      {"addSessionData", [](auto& kite) { kite.addSessionData("a", tooLarge); }},
      {"updateSessionData",
       [](auto& kite) {
         kite.updateSessionData({{"a", tooLarge}});
       }},
      {"addUserInfo", [](auto& kite) { kite.addUserInfo("a", tooLarge); }},
      {"updateUserInfo",
       [](auto& kite) {
         kite.updateUserInfo({{"a", tooLarge}});
       }},
      {"trackUserAction",
       [](auto& kite) {
         kite.trackUserAction("a", {{"a", tooLarge}});
       }},
      {"trackCustomEvent",
       [](auto& kite) {
         kite.trackCustomEvent("a", {{"a", tooLarge}});
       }},
      {"trackLog",
       [](auto& kite) {
         kite.trackLog("a", Severity::debug, {{"a", tooLarge}});
       }},
      {"trackDebugEvent",
       [](auto& kite) {
         kite.trackDebugEvent({.severity = Severity::debug,
                               .message = "m",
                               .category = "c",
                               .info = {{"a", tooLarge}}});
       }},
      {"monetizationFieldsDidChange",
       [](auto& kite) {
         kite.monetizationFieldsDidChange({{"a", tooLarge}});
       }},
  };

  void SetUp() override { world.network.respond(answers(500)); }

  void expectAllToStopTheProcess(KiteManager& kite) {
    for (const auto& [name, operation] : operations) {
      SCOPED_TRACE(name);
      EXPECT_FATAL(operation(kite), noJSONForm);
    }
  }
};

TEST_F(KiteOversizedNumberTests, stopsTheProcessBeforeStartToo) {
  KiteManagerImpl kite(world.system.system());
  expectAllToStopTheProcess(kite);
}

TEST_F(KiteOversizedNumberTests, stopsTheProcessAfterStart) {
  KiteManagerImpl kite(world.system.system());
  kite.start(world.dependencies());
  expectAllToStopTheProcess(kite);
}

TEST_F(KiteOversizedNumberTests, stopsTheProcessWhateverTheConsentsAndTheBackgroundSay) {
  KiteManagerImpl kite(world.system.system());
  kite.start(world.dependencies());
  kite.setAnalyticsTrackingConsent(false);
  kite.setProfilingTrackingConsent(false);
  world.enterBackground();
  expectAllToStopTheProcess(kite);
}

TEST_F(KiteOversizedNumberTests, stopsTheProcessFromWithinAListOrAMap) {
  KiteManagerImpl kite(world.system.system());
  EXPECT_FATAL(kite.trackUserAction("a", {{"list", std::vector{tooLarge}}}), noJSONForm);
  EXPECT_FATAL(kite.trackLog("a", Severity::debug, {{"map", KiteData{{"deep", tooLarge}}}}),
               noJSONForm);
  EXPECT_FATAL(kite.addSessionData("a", KiteData{{"deep", tooLarge}}), noJSONForm);
}

TEST_F(KiteOversizedNumberTests, isNotLookedAtInAForkedChild) {
  auto system = world.system.system();
  bool isForked = false;
  system.forkCount = [&] { return std::uint64_t{isForked}; };
  KiteManagerImpl kite(system);
  isForked = true;
  for (const auto& [name, operation] : operations)
    EXPECT_FALSE(fatalErrorOf([&, &call = operation] { call(kite); })) << name;
}

/// A bundle of which one part is missing.
class KiteMissingPartTests : public testing::Test {
 protected:
  using Remove = std::function<void(KiteDependencies&)>;

  TestWorld world;
  std::shared_ptr<KiteState> state = std::make_shared<KiteState>(world.system.system());

  void expectMissing(const std::string& name, const Remove& remove) {
    SCOPED_TRACE(name);
    auto bundle = world.dependencies();
    remove(bundle);
    EXPECT_FATAL(state->start(bundle), "KiteDependencies." + name + " is missing");
  }
};

TEST_F(KiteMissingPartTests, isNamedByStartWhicheverItIs) {
  const std::vector<std::pair<const char*, Remove>> parts{
      {"kvStorage", [](auto& bundle) { bundle.kvStorage = nullptr; }},
      {"secretsStorage", [](auto& bundle) { bundle.secretsStorage = nullptr; }},
      {"urlSession", [](auto& bundle) { bundle.urlSession = nullptr; }},
      {"idProvider", [](auto& bundle) { bundle.idProvider = nullptr; }},
      {"notificationCenter", [](auto& bundle) { bundle.notificationCenter = nullptr; }},
      {"fileManager.urlsForDirectory",
       [](auto& bundle) { bundle.fileManager.urlsForDirectory = nullptr; }},
      {"fileManager.attributesOfItem",
       [](auto& bundle) { bundle.fileManager.attributesOfItem = nullptr; }},
      {"device", [](auto& bundle) { bundle.device = nullptr; }},
      {"device.machine",
       [](auto& bundle) {
         auto device = *bundle.device;
         device.machine = nullptr;
         bundle.device = std::make_shared<const Device>(device);
       }},
      {"timeZone.secondsFromUTC", [](auto& bundle) { bundle.timeZone.secondsFromUTC = nullptr; }},
      {"timeZone.isDaylightSavingTime",
       [](auto& bundle) { bundle.timeZone.isDaylightSavingTime = nullptr; }},
      {"attributionClient.requestAttributionDetails",
       [](auto& bundle) { bundle.attributionClient.requestAttributionDetails = nullptr; }},
      {"backgroundTaskScheduler.beginBackgroundTask",
       [](auto& bundle) { bundle.backgroundTaskScheduler.beginBackgroundTask = nullptr; }},
      {"backgroundTaskScheduler.endBackgroundTask",
       [](auto& bundle) { bundle.backgroundTaskScheduler.endBackgroundTask = nullptr; }},
      {"scheduler", [](auto& bundle) { bundle.scheduler = nullptr; }},
      {"timeProvider.now", [](auto& bundle) { bundle.timeProvider.now = nullptr; }},
      {"syncQueue", [](auto& bundle) { bundle.syncQueue = nullptr; }},
      {"eventStorageQueue", [](auto& bundle) { bundle.eventStorageQueue = nullptr; }},
      {"backgroundChecker.isInBackground",
       [](auto& bundle) { bundle.backgroundChecker.isInBackground = nullptr; }},
      {"uuidProvider", [](auto& bundle) { bundle.uuidProvider = nullptr; }},
      {"sessionListener.onSessionStart",
       [](auto& bundle) { bundle.sessionListener.onSessionStart = nullptr; }},
      {"sessionListener.onSessionEnd",
       [](auto& bundle) { bundle.sessionListener.onSessionEnd = nullptr; }},
      {"sessionListener.detachSessionStart",
       [](auto& bundle) { bundle.sessionListener.detachSessionStart = nullptr; }},
      {"sessionListener.detachSessionEnd",
       [](auto& bundle) { bundle.sessionListener.detachSessionEnd = nullptr; }},
      {"whisker", [](auto& bundle) { bundle.whisker = nullptr; }},
      {"storefrontProvider", [](auto& bundle) { bundle.storefrontProvider = nullptr; }},
  };
  for (const auto& [name, remove] : parts) expectMissing(name, remove);
}

TEST_F(KiteMissingPartTests, leavesNothingBegun) {
  expectMissing("storefrontProvider", [](auto& bundle) { bundle.storefrontProvider = nullptr; });
  EXPECT_FALSE(state->enabled);
  EXPECT_FALSE(state->dependencies.unwrapped());
  EXPECT_EQ(world.keyValues->writes(), 0);
  EXPECT_EQ(world.secrets->writes(), 0);
  EXPECT_EQ(world.time->armed(), 0U);
  EXPECT_EQ(world.center->observers(UIApplicationWillEnterForegroundNotification), 0U);
  EXPECT_EQ(world.center->observers(UIApplicationDidEnterBackgroundNotification), 0U);
  EXPECT_EQ(world.drawnBundleUUIDs, 0U);
}

TEST_F(KiteMissingPartTests, mayBeTheVendorsIdentifierWhichNotEveryPlatformHas) {
  world.network.respond(answers(500));
  auto device = *world.device;
  device.identifierForVendor = nullptr;
  world.device = std::make_shared<const Device>(device);
  state->start(world.dependencies());
  EXPECT_TRUE(state->enabled);
}

}  // namespace
}  // namespace kite::test
