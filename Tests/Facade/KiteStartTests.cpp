#include <Kite/Kite.h>

#include "Facade/KiteState.h"
#include "Facade/RecordingManagers.h"
#include "JSON/JSONDecoder.h"
#include "Support/TestWorld.h"

#include <gmock/gmock.h>
#include <simdjson.h>

#include <algorithm>

namespace kite::test {
namespace {

using testing::ElementsAre;

/// What `start` does with its managers, which are replaced by recorders.
class KiteStartTests : public testing::Test {
 protected:
  TestWorld world;
  std::shared_ptr<KiteState> state = std::make_shared<KiteState>(world.system.system());
  StartLog log;
  std::shared_ptr<RecordingAPIManager> api =
      std::make_shared<RecordingAPIManager>("API manager", log);
  std::shared_ptr<RecordingEventStorage> storage =
      std::make_shared<RecordingEventStorage>("event storage", log);
  std::shared_ptr<RecordingEventManager> events =
      std::make_shared<RecordingEventManager>("event manager", log);
  std::shared_ptr<RecordingInstallManager> installs =
      std::make_shared<RecordingInstallManager>("install manager", log);
  std::shared_ptr<RecordingSessionManager> sessions =
      std::make_shared<RecordingSessionManager>("session manager", log);
  std::shared_ptr<RecordingSynchronizationManager> synchronization =
      std::make_shared<RecordingSynchronizationManager>("synchronization manager", log);
  std::shared_ptr<Larder::KVStorage> consentStorage;

  void SetUp() override {
    state->apiManager = api;
    state->eventStorage = storage;
    state->eventManager = events;
    state->installManager = installs;
    state->sessionManager = sessions;
    state->synchronizationManager = synchronization;
    state->trackingConsent._start = [this](const auto& given) {
      log.emplace_back("tracking consent");
      consentStorage = given;
    };
    world.attribution = {[this](const auto&) { log.emplace_back("attribution"); }};
  }

  KiteDependencies bundle() {
    auto bundle = world.dependencies();
    bundle.uuidProvider = [this, draw = bundle.uuidProvider] {
      log.emplace_back("identifier");
      return draw();
    };
    return bundle;
  }
  bool isProductionOf(DistributionChannel channel) {
    world.kitbag.distributionChannel = channel;
    state->start(bundle());
    return sessions->given->isProduction;
  }
};

TEST_F(KiteStartTests, drawsTheProcessIdentifierAndThenStartsAllManagersInTheirOrder) {
  state->start(bundle());
  EXPECT_THAT(log, ElementsAre("identifier", "API manager", "event storage", "event manager",
                               "user info", "attribution", "install manager", "session manager",
                               "synchronization manager", "tracking consent"));
}

TEST_F(KiteStartTests, parsesWithWhatTheProcessesExitDoesNotDestroy) {
  state->start(bundle());
  ASSERT_TRUE(decodeJSON("[1]"));
  const simdjson::implementation* const used = simdjson::get_active_implementation();
  const auto& destroyed = simdjson::get_available_implementations();
  EXPECT_EQ(std::count(destroyed.begin(), destroyed.end(), used), 0);
}

TEST_F(KiteStartTests, isEnabledOnceTheProcessIdentifierIsDrawnAndBeforeAnyManagerStarts) {
  auto given = bundle();
  std::vector<bool> enabled;
  const auto look = [&] { enabled.push_back(state->enabled); };
  given.uuidProvider = [&, draw = given.uuidProvider] {
    look();
    return draw();
  };
  api->onStart = look;
  storage->onStart = look;
  state->start(given);
  EXPECT_THAT(enabled, ElementsAre(false, true, true));
}

TEST_F(KiteStartTests, newSessionDataWinsOverTheSessionsAndTheRestIsKept) {
  state->start(bundle());
  Session session;
  session.sessionData = {{"a", 1}, {"b", 1}};
  sessions->session = std::make_shared<const Session>(session);
  state->updateSessionData({{"a", 2}, {"c", 3}});
  EXPECT_EQ(sessions->updatedWith, (JSONValue::Object{{"a", 2}, {"b", 1}, {"c", 3}}));
}

TEST_F(KiteStartTests, sessionDataIsNotUpdatedWhileDisabled) {
  sessions->session = std::make_shared<const Session>();
  state->updateSessionData({{"a", 2}});
  EXPECT_FALSE(sessions->updatedWith);
}

TEST_F(KiteStartTests, takesTheProcessIdentifierFromTheBundle) {
  state->start(bundle());
  EXPECT_EQ(state->_currentProcessId.get(), TestWorld::bundleUUID(1));
}

TEST_F(KiteStartTests, aFacadeThatWasNotStartedIsDisabledAndHasStartedNothing) {
  EXPECT_FALSE(state->enabled);
  EXPECT_FALSE(state->dependencies.unwrapped());
  EXPECT_FALSE(state->fatalErrorForTests);
  EXPECT_THAT(log, ElementsAre());
}

TEST_F(KiteStartTests, theAPIManagerIsGivenItsEndpointsAndWhatItsRequestsCarry) {
  auto given = bundle();
  given.secondaryURLs = {*URL::parse("https://second.test/v4/events")};
  state->start(given);
  EXPECT_EQ(api->given->baseURL.absoluteString(), "https://staging.test/v4/events");
  EXPECT_EQ(api->given->secondaryURLs, given.secondaryURLs);
  EXPECT_EQ(api->given->kvStorage, world.keyValues);
  EXPECT_TRUE(api->given->isTestEnvironment);
  EXPECT_EQ(api->given->lumoID, "trail-maps");
  EXPECT_EQ(api->given->kiteVersion, "iOS-4.0.0");
  EXPECT_EQ(api->given->wicketKey, "key");
  EXPECT_EQ(api->given->clientId, "user-defaults");
}

TEST_F(KiteStartTests, theAPIManagerSendsOverThePlatformsSession) {
  state->start(bundle());
  const URLRequest request{.url = *URL::parse("https://a.test"), .headerFields = {}, .body = {}};
  api->given->urlSession.dataTask(request, [](auto, auto, auto) {})->resume();
  EXPECT_EQ(world.network.requests().size(), 1U);
}

TEST_F(KiteStartTests, theAPIManagerReportsUnderTheLibrarysOneCategory) {
  state->start(bundle());
  api->given->whisker->report({.severity = Whisker::Severity::info,
                               .categories = {},
                               .description = "d",
                               .errorCode = std::nullopt,
                               .info = {}},
                              {});
  ASSERT_EQ(world.whisker->reports().size(), 1U);
  EXPECT_THAT(world.whisker->reports().front().event.categories, ElementsAre("kite"));
}

TEST_F(KiteStartTests, theEventStorageIsGivenItsQueueItsStoreAndTheApplication) {
  state->start(bundle());
  EXPECT_EQ(storage->given->eventStorageQueue, world.storageQueue);
  EXPECT_EQ(storage->given->kvStorage, world.keyValues);
  EXPECT_EQ(storage->given->scheduler, world.time);
  EXPECT_TRUE(world.isAskedBy(storage->given->backgroundChecker));
  EXPECT_TRUE(world.isHeardBy(storage->given->sessionListener));
}

TEST_F(KiteStartTests, theEventManagerIsGivenTheStorageAndWhoTheUserIs) {
  auto given = bundle();
  given.storefrontProvider = [] { return Storefront{"143461", "NZ"}; };
  state->start(given);
  EXPECT_EQ(events->given->storage, storage);
  EXPECT_EQ(events->given->idProvider, world.usher);
  EXPECT_EQ(events->given->secretsStorage, world.secrets);
  EXPECT_EQ(events->given->lumoID, "trail-maps");
  EXPECT_EQ(events->given->storefrontProvider(), (Storefront{"143461", "NZ"}));
}

TEST_F(KiteStartTests, eventsUseTheMachinesClockAndIdentifiersNotTheBundles) {
  state->start(bundle());
  EXPECT_EQ(events->given->now(), world.system.now());
  const auto next = FakeSystem::uuid(world.system.drawnUUIDs() + 1);
  EXPECT_EQ(events->given->uuidGenerator(), next);
}

TEST_F(KiteStartTests, theInstallManagerIsGivenTheStoresTheVersionsAndWhatTheHostSaid) {
  auto given = bundle();
  given.installedBeforeKite = true;
  state->start(given);
  EXPECT_EQ(installs->given->kvStorage, world.keyValues);
  EXPECT_EQ(installs->given->secretsStorage, world.secrets);
  EXPECT_EQ(installs->given->idProvider, world.usher);
  EXPECT_EQ(installs->given->currentAppVersion, "1.0");
  EXPECT_EQ(installs->given->currentBundleVersion, "100");
  EXPECT_EQ(installs->given->eventManager, events);
  EXPECT_TRUE(installs->given->installedBeforeKite);
  EXPECT_THAT(installs->given->fileManager.urlsForDirectory(0, 0), ElementsAre("/documents"));
}

TEST_F(KiteStartTests, installsUseTheMachinesClockNotTheBundles) {
  state->start(bundle());
  EXPECT_EQ(installs->given->now(), world.system.now());
}

TEST_F(KiteStartTests, theSessionManagerIsGivenItsStoreAndTheApplication) {
  state->start(bundle());
  EXPECT_EQ(sessions->given->eventManager, events);
  EXPECT_EQ(sessions->given->kvStorage, world.keyValues);
  EXPECT_EQ(sessions->given->scheduler, world.time);
  EXPECT_TRUE(world.isAskedBy(sessions->given->backgroundChecker));
  EXPECT_TRUE(world.isHeardBy(sessions->given->sessionListener));
}

TEST_F(KiteStartTests, sessionsUseTheBundlesClockAndIdentifiersNotTheMachines) {
  state->start(bundle());
  EXPECT_EQ(sessions->given->timeProvider.now(), world.time->now());
  EXPECT_EQ(sessions->given->uuidProvider(), TestWorld::bundleUUID(2));
}

TEST_F(KiteStartTests, onlyAnAppStoreBuildMarksTheSessionManagerAsProduction) {
  EXPECT_FALSE(isProductionOf(DistributionChannel::testFlight));
  EXPECT_FALSE(isProductionOf(DistributionChannel::debug));
  EXPECT_TRUE(isProductionOf(DistributionChannel::appStore));
}

TEST_F(KiteStartTests, theSynchronizationManagerIsGivenItsQueueAndBothEndsOfAnUpload) {
  auto given = bundle();
  given.syncOnSessionEnd = true;
  state->start(given);
  EXPECT_EQ(synchronization->given->storage, storage);
  EXPECT_EQ(synchronization->given->apiManager, api);
  EXPECT_EQ(synchronization->given->syncQueue, world.syncQueue);
  EXPECT_EQ(synchronization->given->scheduler, world.time);
  EXPECT_TRUE(synchronization->given->syncOnSessionEnd);
  EXPECT_TRUE(world.isHeardBy(synchronization->given->sessionListener));
  EXPECT_TRUE(world.isAskedForTasksBy(synchronization->given->backgroundTaskScheduler));
}

TEST_F(KiteStartTests, theConsentsAreKeptInTheKeyValueStore) {
  state->start(bundle());
  EXPECT_EQ(consentStorage, world.keyValues);
}

TEST_F(KiteStartTests, aSecondStartRepeatsEveryStep) {
  state->start(bundle());
  const auto expected = log;
  log.clear();
  world.locale.regionCode = "NZ";  // or the second start would have no user info to report
  state->start(bundle());
  EXPECT_EQ(log, expected);
  EXPECT_EQ(state->_currentProcessId.get(), TestWorld::bundleUUID(2));
}

TEST_F(KiteStartTests, aSecondStartGivesEveryManagerPartsOfTheNewBundle) {
  state->start(bundle());
  auto second = bundle();
  second.kvStorage = std::make_shared<InMemoryKVStorage>();
  second.lumoID = "trail-maps-pro";
  second.syncOnSessionEnd = true;
  state->start(second);
  EXPECT_EQ(api->given->lumoID, "trail-maps-pro");
  EXPECT_EQ(storage->given->kvStorage, second.kvStorage);
  EXPECT_EQ(events->given->lumoID, "trail-maps-pro");
  EXPECT_EQ(installs->given->kvStorage, second.kvStorage);
  EXPECT_EQ(sessions->given->kvStorage, second.kvStorage);
  EXPECT_TRUE(synchronization->given->syncOnSessionEnd);
  EXPECT_EQ(consentStorage, second.kvStorage);
  EXPECT_EQ(state->dependencies->lumoID, "trail-maps-pro");
}

}  // namespace
}  // namespace kite::test
