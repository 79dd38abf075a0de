#include <Kite/KiteDependencies.h>

#include "Support/TestWorld.h"

#include <gmock/gmock.h>

namespace kite::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class KiteDependenciesTests : public testing::Test {
 protected:
  TestWorld world;

  FromCustomIDs customIDs() {
    const auto given = world.given();
    return {.installedBeforeKite = true,
            .customIDs = {{"account", [] { return "a1"; }}},
            .endpoints = given.endpoints,
            .sessionListener = given.sessionListener,
            .backgroundChecker = given.backgroundChecker,
            .backgroundTaskScheduler = given.backgroundTaskScheduler,
            .lumoID = given.lumoID,
            .wicketKey = given.wicketKey,
            .whisker = given.whisker,
            .storefrontProvider = given.storefrontProvider,
            .syncOnSessionEnd = true};
  }
  FromKitbag withKitbag() {
    const auto given = world.given();
    return {.kitbag = {.appVersion = "9", .bundleVersion = "90"},
            .installedBeforeKite = true,
            .idProvider = given.idProvider,
            .endpoints = given.endpoints,
            .sessionListener = given.sessionListener,
            .backgroundChecker = given.backgroundChecker,
            .backgroundTaskScheduler = given.backgroundTaskScheduler,
            .lumoID = given.lumoID,
            .wicketKey = given.wicketKey,
            .whisker = given.whisker,
            .storefrontProvider = given.storefrontProvider,
            .syncOnSessionEnd = false};
  }
};

TEST_F(KiteDependenciesTests, theGivenValuesAreTakenAsTheyAre) {
  const auto bundle = world.dependencies();
  EXPECT_EQ(bundle.lumoID, "trail-maps");
  EXPECT_EQ(bundle.wicketKey, "key");
  EXPECT_EQ(bundle.currentAppVersion, "1.0");
  EXPECT_EQ(bundle.bundleVersion, "100");
  EXPECT_EQ(bundle.idProvider, world.usher);
  EXPECT_EQ(bundle.whisker, world.whisker);
  EXPECT_FALSE(bundle.installedBeforeKite);
  EXPECT_FALSE(bundle.syncOnSessionEnd);
}

TEST_F(KiteDependenciesTests, theLibraryNamesItsVersionToTheService) {
  EXPECT_EQ(world.dependencies().kiteVersion, "iOS-4.0.0");
}

TEST_F(KiteDependenciesTests, aKitbagWithoutAnAppVersionGivesTheEmptyText) {
  world.kitbag = {};
  EXPECT_EQ(world.dependencies().currentAppVersion, "");
  EXPECT_EQ(world.dependencies().bundleVersion, "");
}

TEST_F(KiteDependenciesTests, aTestFlightBuildTalksToTheStagingEndpoint) {
  world.kitbag.distributionChannel = DistributionChannel::testFlight;
  EXPECT_TRUE(world.dependencies().isTestEnvironment);
  EXPECT_EQ(world.dependencies().baseURL.absoluteString(), "https://staging.test/v4/events");
}

TEST_F(KiteDependenciesTests, aDebugBuildTalksToTheStagingEndpoint) {
  world.kitbag.distributionChannel = DistributionChannel::debug;
  EXPECT_TRUE(world.dependencies().isTestEnvironment);
  EXPECT_EQ(world.dependencies().baseURL.absoluteString(), "https://staging.test/v4/events");
}

TEST_F(KiteDependenciesTests, anAppStoreBuildTalksToTheProductionEndpoint) {
  world.kitbag.distributionChannel = DistributionChannel::appStore;
  EXPECT_FALSE(world.dependencies().isTestEnvironment);
  EXPECT_EQ(world.dependencies().baseURL.absoluteString(), "https://production.test/v4/events");
}

TEST_F(KiteDependenciesTests, secondaryURLsAreEmptyAfterEveryInitialiser) {
  EXPECT_THAT(KiteDependencies(world.platform(), world.given()).secondaryURLs, IsEmpty());
  EXPECT_THAT(KiteDependencies(world.platform(), customIDs()).secondaryURLs, IsEmpty());
  EXPECT_THAT(KiteDependencies(world.platform(), withKitbag()).secondaryURLs, IsEmpty());
}

TEST_F(KiteDependenciesTests, theTwoQueuesAreNotTheSame) {
  const auto bundle = world.dependencies();
  EXPECT_NE(bundle.syncQueue, nullptr);
  EXPECT_NE(bundle.eventStorageQueue, nullptr);
  EXPECT_NE(bundle.syncQueue, bundle.eventStorageQueue);
}

TEST_F(KiteDependenciesTests, thePlatformsPartsAreMadeInAFixedOrder) {
  auto given = world.given();
  given.kitbag = std::nullopt;
  KiteDependencies(world.platform(), given);
  EXPECT_THAT(world.made, ElementsAre("kitbag", "kvStorage", "secretsStorage", "urlSession",
                                      "notificationCenter", "fileManager", "locale", "device",
                                      "timeZone", "attributionClient", "scheduler", "timeProvider",
                                      "kite.sync", "kite.storage"));
}

TEST_F(KiteDependenciesTests, withoutAKitbagThePlatformsIsTaken) {
  auto given = world.given();
  given.kitbag = std::nullopt;
  world.kitbag.appVersion = "platform";
  EXPECT_EQ(KiteDependencies(world.platform(), given).currentAppVersion, "platform");
}

TEST_F(KiteDependenciesTests, aGivenKitbagIsTakenInsteadOfThePlatforms) {
  const KiteDependencies bundle(world.platform(), withKitbag());
  EXPECT_EQ(bundle.currentAppVersion, "9");
  EXPECT_EQ(bundle.bundleVersion, "90");
  EXPECT_THAT(world.made, testing::Not(testing::Contains("kitbag")));
}

TEST_F(KiteDependenciesTests, customIdentifiersStartAnIdentityProviderOfTheirOwn) {
  const KiteDependencies bundle(world.platform(), customIDs());
  const auto& started = world.usher->startedWith();
  ASSERT_TRUE(started);
  EXPECT_EQ(bundle.idProvider, world.usher);
  EXPECT_EQ(started->kitbag, world.kitbag);
  EXPECT_EQ(started->kvstorage, world.keyValues);
  EXPECT_EQ(started->secretsStorage, world.secrets);
  EXPECT_EQ(started->identifierForVendorProvider, bundle.device);
  EXPECT_EQ(started->customIdentifiers.at("account")(), "a1");
}

TEST_F(KiteDependenciesTests, anIdentityProviderOfTheHostsIsNotStarted) {
  KiteDependencies(world.platform(), world.given());
  KiteDependencies(world.platform(), withKitbag());
  EXPECT_FALSE(world.usher->startedWith());
}

TEST(KiteEndpointsTests, theDefaultEndpointsAreHTTPSAndEndInTheEventsPath) {
  const auto& endpoints = KiteEndpoints::defaultEndpoints();
  EXPECT_EQ(endpoints.production.absoluteString(), "https://events.kite.example/v4/events");
  EXPECT_EQ(endpoints.staging.absoluteString(), "https://events-staging.kite.example/v4/events");
  EXPECT_EQ(&endpoints, &KiteEndpoints::defaultEndpoints());
}

}  // namespace
}  // namespace kite::test
