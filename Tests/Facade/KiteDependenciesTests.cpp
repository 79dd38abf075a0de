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

  FromIDProvider withIDProvider() {
    auto given = world.given();
    given.storefrontProvider = [] { return Storefront{"143461", "NZ"}; };
    given.sessionListener.disableAutomaticSession = true;
    return given;
  }
  FromCustomIDs customIDs() {
    const auto given = withIDProvider();
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
            .syncOnSessionEnd = false};
  }
  FromKitbag withKitbag() {
    const auto given = withIDProvider();
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

  /// Makes two bundles, for which the host answers its two yes-or-no questions in opposite ways.
  template <class Make>
  void expectTakesWhatIsGiven(Make make) {
    for (const bool answer : {true, false}) {
      auto given = make();
      given.installedBeforeKite = answer;
      given.syncOnSessionEnd = !answer;
      const KiteDependencies bundle(world.platform(), given);
      EXPECT_EQ(bundle.installedBeforeKite, answer);
      EXPECT_EQ(bundle.syncOnSessionEnd, !answer);
      expectTheHosts(bundle);
    }
  }
  void expectTheHosts(const KiteDependencies& bundle) {
    EXPECT_EQ(bundle.idProvider, world.usher);
    EXPECT_EQ(bundle.lumoID, "trail-maps");
    EXPECT_EQ(bundle.wicketKey, "key");
    EXPECT_EQ(bundle.whisker, world.whisker);
    EXPECT_EQ(bundle.baseURL.absoluteString(), "https://staging.test/v4/events");
    EXPECT_EQ(bundle.storefrontProvider(), (Storefront{"143461", "NZ"}));
    EXPECT_TRUE(bundle.sessionListener.disableAutomaticSession);
    EXPECT_TRUE(world.isHeardBy(bundle.sessionListener));
    EXPECT_TRUE(world.isAskedBy(bundle.backgroundChecker));
    EXPECT_TRUE(world.isAskedForTasksBy(bundle.backgroundTaskScheduler));
  }
};

TEST_F(KiteDependenciesTests, theGivenValuesAreTakenAsTheyAre) {
  expectTakesWhatIsGiven([this] { return withIDProvider(); });
}

TEST_F(KiteDependenciesTests, theValuesGivenWithAKitbagAreTakenAsTheyAre) {
  expectTakesWhatIsGiven([this] { return withKitbag(); });
}

TEST_F(KiteDependenciesTests, theValuesGivenWithCustomIdentifiersAreTakenAsTheyAre) {
  expectTakesWhatIsGiven([this] { return customIDs(); });
}

TEST_F(KiteDependenciesTests, anAppStoreKitbagOfTheHostsTalksToTheProductionEndpoint) {
  auto given = withKitbag();
  given.kitbag.distributionChannel = DistributionChannel::appStore;
  EXPECT_EQ(KiteDependencies(world.platform(), given).baseURL, given.endpoints.production);
}

TEST_F(KiteDependenciesTests, theVersionsAreTheKitbags) {
  const auto bundle = world.dependencies();
  EXPECT_EQ(bundle.currentAppVersion, "1.0");
  EXPECT_EQ(bundle.bundleVersion, "100");
}

TEST_F(KiteDependenciesTests, thePartsThatTheHostDoesNotGiveAreThePlatforms) {
  world.timeZone.identifier = "Pacific/Auckland";
  const auto bundle = world.dependencies();
  EXPECT_EQ(bundle.kvStorage, world.keyValues);
  EXPECT_EQ(bundle.secretsStorage, world.secrets);
  EXPECT_EQ(bundle.urlSession, world.network.urlSession());
  EXPECT_EQ(bundle.notificationCenter, world.center);
  EXPECT_THAT(bundle.fileManager.urlsForDirectory(0, 0), ElementsAre("/documents"));
  EXPECT_EQ(bundle.locale.identifier, "en_US");
  EXPECT_EQ(bundle.device, world.device);
  EXPECT_EQ(bundle.timeZone.identifier, "Pacific/Auckland");
  EXPECT_EQ(bundle.libraryShortVersion, "1.0.0");
}

TEST_F(KiteDependenciesTests, timeQueuesAndIdentifiersAreThePlatforms) {
  const auto bundle = world.dependencies();
  EXPECT_EQ(bundle.scheduler, world.time);
  EXPECT_EQ(bundle.timeProvider.now(), world.time->now());
  EXPECT_EQ(bundle.syncQueue, world.syncQueue);
  EXPECT_EQ(bundle.eventStorageQueue, world.storageQueue);
  EXPECT_EQ(bundle.uuidProvider(), TestWorld::bundleUUID(1));
  EXPECT_EQ(bundle.uuidProvider(), TestWorld::bundleUUID(2));
}

TEST_F(KiteDependenciesTests, theAttributionClientIsThePlatforms) {
  int requests = 0;
  world.attribution = {[&](const auto&) { ++requests; }};
  world.dependencies().attributionClient.requestAttributionDetails({});
  EXPECT_EQ(requests, 1);
}

TEST_F(KiteDependenciesTests, theSecretsStoreIsMadeForTheChosenKitbag) {
  const auto given = withKitbag();
  KiteDependencies(world.platform(), given);
  EXPECT_EQ(world.secretsKitbag, given.kitbag);
  KiteDependencies(world.platform(), customIDs());
  EXPECT_EQ(world.secretsKitbag, world.kitbag);
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

TEST_F(KiteDependenciesTests, anIdentityProviderIsMadeOnceEverythingThatItNeedsIsThere) {
  KiteDependencies(world.platform(), customIDs());
  EXPECT_THAT(world.made, ElementsAre("kitbag", "kvStorage", "secretsStorage", "urlSession",
                                      "notificationCenter", "fileManager", "locale", "device",
                                      "timeZone", "usherManager", "attributionClient", "scheduler",
                                      "timeProvider", "kite.sync", "kite.storage"));
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
  EXPECT_EQ(started->idfaProvider(), "advertising-id");
  EXPECT_EQ(started->notBackuppableIdFolderProvider(), "/not-backed-up");
  EXPECT_THAT(started->fileManager.urlsForDirectory(0, 0), ElementsAre("/documents"));
  EXPECT_EQ(started->customIdentifiers.size(), 1U);
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
