#include <Kite/Kite.h>

#include "Support/TestWorld.h"

#include <gtest/gtest.h>

namespace kite::test {
namespace {

TEST(KiteNoopTests, bothIdentifiersAreTheSamePlaceholder) {
  KiteNoop noop = KiteManager::noop();
  EXPECT_EQ(noop.currentSessionId(), noop.currentProcessId());
  EXPECT_EQ(noop.currentSessionId(), UUID::noop());
}

TEST(KiteNoopTests, thePlaceholderIsWrittenInUpperCase) {
  EXPECT_EQ(KiteManager::noop().currentSessionId().text(), "123E4567-E89B-12D3-A456-426614174000");
}

TEST(KiteNoopTests, thePlaceholderIsReadFromEitherCase) {
  EXPECT_EQ(UUID::parse("123e4567-e89b-12d3-a456-426614174000"), UUID::noop());
  EXPECT_EQ(UUID::parse("123E4567-E89B-12D3-A456-426614174000"), UUID::noop());
}

TEST(KiteNoopTests, everyReadGivesItsPlaceholder) {
  KiteNoop noop;
  EXPECT_TRUE(noop.sessionDataKiteValue().empty());
  EXPECT_TRUE(noop.userInfoKiteValue().empty());
  EXPECT_EQ(noop.firstInstallTimestamp(), std::nullopt);
  EXPECT_EQ(noop.keychainId(), "");
  EXPECT_EQ(noop.userDefaultsId(), "");
  EXPECT_FALSE(noop.installedBeforeKite());
}

TEST(KiteNoopTests, startingItTouchesNothingOfTheBundle) {
  TestWorld world;
  KiteNoop noop;
  noop.start(world.dependencies());
  EXPECT_EQ(world.keyValues->writes(), 0);
  EXPECT_EQ(world.secrets->writes(), 0);
  EXPECT_EQ(world.time->armed(), 0U);
  EXPECT_EQ(world.center->observers(UIApplicationWillEnterForegroundNotification), 0U);
  EXPECT_EQ(world.center->observers(UIApplicationDidEnterBackgroundNotification), 0U);
  EXPECT_TRUE(world.network.requests().empty());
  EXPECT_EQ(world.drawnBundleUUIDs, 0U);
  EXPECT_EQ(noop.currentProcessId(), UUID::noop());
}

TEST(KiteNoopTests, noOperationOfAFacadeThatNeverStartedFailsOrRecords) {
  KiteNoop noop;
  KiteManager& kite = noop;
  kite.addSessionData("a", 1);
  kite.updateSessionData({{"a", 1}});
  kite.addUserInfo("a", 1);
  kite.updateUserInfo({{"a", 1}});
  kite.trackUserAction("a", {{"tooLarge", std::uint64_t(-1)}});
  kite.trackCustomEvent("Session", {});
  kite.trackLog("a", Severity::error, {});
  kite.trackDebugEvent({.severity = Severity::error, .message = "m", .category = "c"});
  kite.trackExperimentSegmentsReceived({{"a", 1}});
  kite.monetizationFieldsDidChange({});
  kite.isBaselineUserDidChange(true);
  kite.isFreeUserDidChange(true);
  kite.setAnalyticsTrackingConsent(false);
  kite.setProfilingTrackingConsent(false);
  kite.addTechnicalEvents({"a"});
  kite.addProfilingOnlyEvents({"a"});
  EXPECT_TRUE(kite.sessionDataKiteValue().empty());
  EXPECT_TRUE(kite.userInfoKiteValue().empty());
}

}  // namespace
}  // namespace kite::test
