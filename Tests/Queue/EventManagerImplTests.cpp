#include "Queue/EventManagerImpl.h"

#include "Profile/UserInfo.h"
#include "Support/CatchFatalErrors.h"
#include "Support/FakeEventStorage.h"
#include "Support/FakeSystem.h"
#include "Support/FakeUsher.h"
#include "Support/InMemorySecretsStorage.h"
#include "Support/KeyedArchive.h"
#include "Support/TrackedEvents.h"
#include "Support/WatchedSecretsStorage.h"

#include <gmock/gmock.h>

#include <functional>
#include <thread>

namespace kite::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

constexpr auto notStarted = "Call start before using the event manager";

const InstallPayload anInstall{.id = FakeSystem::uuid(71),
                               .timestamp = 1.5,
                               .installedBeforeKite = false,
                               .keychainStatus = Usher::CreationType::readFromFile,
                               .userdefaultStatus = Usher::CreationType::readFromFile,
                               .oldBundleVersion = std::nullopt,
                               .oldAppVersion = std::nullopt,
                               .newAppVersion = "2.0",
                               .documentDirectoryCreationTimestamp = std::nullopt};
const SessionStartPayload aStart{.id = FakeSystem::uuid(72), .sessionStartDate = 2.5};
const UserInfoUpdated::Payload anUpdate{.oldUserInfo = {},
                                        .newUserInfo = {{"a", 1}},
                                        .updatedKeys = {"a"},
                                        .lostKeys = {},
                                        .id = FakeSystem::uuid(73),
                                        .timestamp = 3.5};
const UserAction::Payload someAction{.id = FakeSystem::uuid(74),
                                     .timestamp = 4.5,
                                     .actionKind = "buy",
                                     .actionInfo = {{"price", 9.5}},
                                     .secondsFromSessionStart = std::nullopt,
                                     .sessionId = std::nullopt,
                                     .processId = FakeSystem::uuid(1),
                                     .lastForegroundSessionId = std::nullopt,
                                     .isBackgroundEvent = false};
const CustomEvent::Payload aCustomEvent{
    .data = {{"total", 3}}, .id = FakeSystem::uuid(75), .timestamp = 5.5};
const DebugEvent::Payload aDebugEvent{.id = FakeSystem::uuid(76),
                                      .timestamp = 6.5,
                                      .severity = Severity::error,
                                      .message = "m",
                                      .category = "c",
                                      .domain = std::nullopt,
                                      .code = std::nullopt,
                                      .type = std::nullopt,
                                      .description = std::nullopt,
                                      .info = {},
                                      .file = "f",
                                      .function = "g",
                                      .line = 1};

class EventManagerImplTests : public testing::Test {
 protected:
  FakeSystem system{Date{1000.5}};
  std::shared_ptr<FakeEventStorage> storage = std::make_shared<FakeEventStorage>();
  std::shared_ptr<FakeUsher> usher = std::make_shared<FakeUsher>();
  std::shared_ptr<InMemorySecretsStorage> secrets = std::make_shared<InMemorySecretsStorage>();
  std::optional<Storefront> storefront;
  int storefrontReads = 0;
  std::function<void()> onStorefrontRead = [] {};
  int clockReads = 0;
  EventManagerImpl manager;

  EventManagerDependencies dependencies() {
    return {.storage = storage,
            .idProvider = usher,
            .secretsStorage = secrets,
            .lumoID = "trail-maps",
            .storefrontProvider =
                [this] {
                  ++storefrontReads;
                  onStorefrontRead();
                  return storefront;
                },
            .now =
                [this] {
                  ++clockReads;
                  return system.now();
                },
            .uuidGenerator = system.system().randomUUID};
  }
  void start() { manager.start(dependencies()); }

  void trackEveryKind() {
    manager.trackInstallEvent(anInstall);
    manager.trackSession(aStart);
    manager.trackUserInfoUpdated(anUpdate);
    manager.trackUserAction(someAction);
    manager.trackCustomEvent("Orders", aCustomEvent);
    manager.trackDebugEvent(aDebugEvent);
    manager.trackExperimentSegmentsReceived();
  }
  StoredEvent onlyRecord() {
    const auto records = storage->inserted();
    EXPECT_THAT(records, SizeIs(1));
    return records.at(0);
  }
};

TEST_F(EventManagerImplTests, isDisabledUntilItIsStarted) {
  EXPECT_FALSE(manager.isEnabled());
  start();
  EXPECT_TRUE(manager.isEnabled());
}

TEST_F(EventManagerImplTests, aStartWithAnotherStoreForgetsTheUserOfTheFirst) {
  secrets->put("Kite-User-Info", R"({"data":{"from":"first"}})");
  start();
  manager.trackDebugEvent(aDebugEvent);
  const auto first = std::exchange(secrets, std::make_shared<InMemorySecretsStorage>());
  secrets->put("Kite-User-Info", R"({"data":{"from":"second"}})");
  ASSERT_EQ(secrets->revision(), first->revision()) << "or the stores could be told apart by it";
  start();
  manager.trackDebugEvent(aDebugEvent);
  EXPECT_EQ(storage->inserted().at(0).user->info, (JSONValue::Object{{"from", "first"}}));
  EXPECT_EQ(storage->inserted().at(1).user->info, (JSONValue::Object{{"from", "second"}}));
}

/// What an event reads, and its insertion, in their order.
class EventManagerOrderTests : public EventManagerImplTests {
 protected:
  EventManagerOrderTests() {
    usher->onRead = noting("identifiers");
    onStorefrontRead = noting("storefront");
    storage->onInsert = noting("insertion");
    auto watching = dependencies();
    watching.secretsStorage =
        std::make_shared<WatchedSecretsStorage>(secrets, [this](const std::string& operation) {
          if (operation == "lock") log.emplace_back("user info");
        });
    watching.now = [this] { return noting("clock")(), system.now(); };
    watching.uuidGenerator = [this] { return noting("identifier")(), FakeSystem::uuid(1); };
    secrets->put("Kite-User-Info", R"({"data":{}})");
    manager.start(watching);
  }

  std::function<void()> noting(const char* read) {
    return [this, read] { log.emplace_back(read); };
  }

  std::vector<std::string> log;
};

TEST_F(EventManagerOrderTests, theUserIsReadBeforeTheStorefront) {
  manager.trackSession(aStart);
  EXPECT_THAT(log, ElementsAre("user info", "identifiers", "storefront", "insertion"));
  log.clear();
  secrets->put("Kite-User-Info", R"({"data":{"a":1}})");
  manager.trackInstallEvent(anInstall);
  EXPECT_THAT(log, ElementsAre("user info", "identifiers", "storefront", "insertion"));
}

TEST_F(EventManagerOrderTests, otherEventsReadTheUserOnly) {
  manager.trackUserAction(someAction);
  EXPECT_THAT(log, ElementsAre("user info", "identifiers", "insertion"));
  log.clear();
  secrets->put("Kite-User-Info", R"({"data":{"a":1}})");
  manager.trackCustomEvent("Orders", aCustomEvent);
  EXPECT_THAT(log, ElementsAre("user info", "identifiers", "insertion"));
}

TEST_F(EventManagerOrderTests, experimentSegmentsReadTheUserThenTheirIdentifierThenTheClock) {
  manager.trackExperimentSegmentsReceived();
  EXPECT_THAT(log, ElementsAre("user info", "identifiers", "identifier", "clock", "insertion"));
}

TEST_F(EventManagerOrderTests, aChangedIdentifierDoesNotReadTheUserInfoAgain) {
  manager.trackUserAction(someAction);
  log.clear();
  usher->set("another", {"x", Usher::CreationType::readFromFile});
  manager.trackUserAction(someAction);
  EXPECT_THAT(log, ElementsAre("identifiers", "insertion"));
  EXPECT_TRUE(storage->inserted().back().user->ids.contains("another"));
}

TEST_F(EventManagerImplTests, aDisabledManagerReadsAndRecordsNothing) {
  start();
  manager.setEnabled(false);
  trackEveryKind();
  EXPECT_THAT(storage->inserted(), IsEmpty());
  EXPECT_EQ(storefrontReads, 0);
  EXPECT_EQ(clockReads, 0);
  EXPECT_EQ(system.drawnUUIDs(), 0U);
  EXPECT_EQ(usher->reads(), 0);
  EXPECT_EQ(secrets->writes(), 0) << "reading the user info would have migrated it";
}

TEST_F(EventManagerImplTests, anUnstartedManagerIsSilentWhileItIsDisabled) {
  trackEveryKind();
  EXPECT_THAT(storage->inserted(), IsEmpty());
}

TEST_F(EventManagerImplTests, anEnabledManagerStopsTheProcessBeforeStart) {
  manager.setEnabled(true);
  EXPECT_FATAL(manager.trackInstallEvent(anInstall), notStarted);
  EXPECT_FATAL(manager.trackSession(aStart), notStarted);
  EXPECT_FATAL(manager.trackUserInfoUpdated(anUpdate), notStarted);
  EXPECT_FATAL(manager.trackUserAction(someAction), notStarted);
  EXPECT_FATAL(manager.trackCustomEvent("Orders", aCustomEvent), notStarted);
  EXPECT_FATAL(manager.trackDebugEvent(aDebugEvent), notStarted);
  EXPECT_FATAL(manager.trackExperimentSegmentsReceived(), notStarted);
}

TEST_F(EventManagerImplTests, theUserIsNotKnownBeforeStart) {
  const auto raised = fatalErrorOf([&] { static_cast<void>(manager.kiteUser()); });
  ASSERT_TRUE(raised);
  EXPECT_EQ(raised->message, notStarted);
  EXPECT_STREQ(raised->where.file, "EventManagerImpl");
  EXPECT_EQ(raised->where.line, 14U);
}

TEST_F(EventManagerImplTests, everyKindBecomesARecordOfItsOwn) {
  start();
  trackEveryKind();
  std::vector<std::string> types;
  for (const auto& record : storage->inserted()) types.emplace_back(record.type.rawValue());
  EXPECT_THAT(types, ElementsAre("Install", "Session", "UserInfoUpdated", "UserAction", "Orders",
                                 "DebugEvent", "ExperimentSegmentReceived"));
}

TEST_F(EventManagerImplTests, onlyWhatIsKnownToBeOfTheForegroundMayWait) {
  start();
  auto inBackground = someAction;
  inBackground.isBackgroundEvent = true;
  manager.trackUserAction(inBackground);
  auto inForeground = someAction;
  inForeground.isBackgroundEvent = false;
  manager.trackUserAction(inForeground);
  manager.trackCustomEvent("Orders", aCustomEvent);
  manager.trackDebugEvent(aDebugEvent);
  manager.trackSession(aStart);
  manager.trackInstallEvent(anInstall);
  EXPECT_THAT(storage->mayWait(), ElementsAre(false, true, true, false, false, false));
}

TEST_F(EventManagerImplTests, idAndTimeAndDataOfARecordComeFromItsPayload) {
  start();
  manager.trackUserAction(someAction);
  const auto record = onlyRecord();
  EXPECT_EQ(record.id, FakeSystem::uuid(74).text());
  EXPECT_EQ(record.timestamp, 4.5);
  EXPECT_EQ(record.data, tracked(someAction).data());
  EXPECT_EQ(clockReads, 0);
}

TEST_F(EventManagerImplTests, everyRecordIsStampedWithTheApplicationAndNotYetWithARequest) {
  start();
  trackEveryKind();
  for (const auto& record : storage->inserted()) {
    EXPECT_EQ(record.app, "trail-maps");
    EXPECT_EQ(record.requestTimestamp, std::nullopt);
  }
}

TEST_F(EventManagerImplTests, experimentSegmentsCarryNoDataAndTheInjectedIdAndTime) {
  start();
  manager.trackExperimentSegmentsReceived();
  const auto record = onlyRecord();
  EXPECT_EQ(record.type.rawValue(), "ExperimentSegmentReceived");
  EXPECT_THAT(record.data, IsEmpty());
  EXPECT_EQ(record.id, FakeSystem::uuid(1).text());
  EXPECT_EQ(record.timestamp, 1000.5);
  EXPECT_EQ(clockReads, 1);
}

TEST_F(EventManagerImplTests, onlyInstallAndSessionEventsAskForTheStorefrontOnceEach) {
  storefront = Storefront{.identifier = "143450", .countryCode = "ITA"};
  start();
  trackEveryKind();
  EXPECT_EQ(storefrontReads, 2);
  for (const auto& record : storage->inserted()) {
    const auto type = record.type.rawValue();
    EXPECT_EQ(record.data.contains("storefront_id"), type == "Install" || type == "Session");
  }
}

TEST_F(EventManagerImplTests, theUserIsReadBeforeTheStorefrontIsAskedFor) {
  onStorefrontRead = [this] { EXPECT_EQ(usher->reads(), storefrontReads); };
  start();
  manager.trackInstallEvent(anInstall);
  manager.trackSession(aStart);
  EXPECT_EQ(storefrontReads, 2);
}

TEST_F(EventManagerImplTests, aCallUnderWayIsRecordedThoughTheManagerIsDisabledMeanwhile) {
  onStorefrontRead = [this] { manager.setEnabled(false); };
  start();
  manager.trackSession(aStart);
  EXPECT_THAT(storage->inserted(), SizeIs(1));
  manager.trackSession(aStart);
  EXPECT_THAT(storage->inserted(), SizeIs(1));
}

TEST_F(EventManagerImplTests, sessionEndsAreTrackedToo) {
  storefront = Storefront{.identifier = "143450", .countryCode = "ITA"};
  start();
  manager.trackSession(SessionEndPayload{.sessionStartId = FakeSystem::uuid(72),
                                         .crashed = false,
                                         .duration = 8.0,
                                         .sessionData = {},
                                         .id = FakeSystem::uuid(77),
                                         .sessionEndTimestamp = 9.5});
  const auto record = onlyRecord();
  EXPECT_EQ(record.id, FakeSystem::uuid(77).text());
  EXPECT_EQ(*record.data.at("subtype"), JSONValue("session_end"));
  EXPECT_EQ(storefrontReads, 1);
  EXPECT_TRUE(record.data.contains("storefront_id"));
}

TEST_F(EventManagerImplTests, theUserIsTheStoredUserInfoAndEveryIdentifierByName) {
  start();
  UserInfoStore::updateUserInfo(*secrets, {{"country", "NZ"}});
  usher->set("custom", {"value", Usher::CreationType::notApplicable});
  const auto user = manager.kiteUser();
  EXPECT_EQ(user->info, (JSONValue::Object{{"country", "NZ"}}));
  EXPECT_THAT(user->ids,
              ElementsAre(Pair("custom", "value"), Pair(FakeUsher::keychainName, "keychain"),
                          Pair(FakeUsher::userDefaultsName, "user-defaults")));
}

TEST_F(EventManagerImplTests, theUserInfoIsReadWithinTheMonitorOfItsStore) {
  UserInfoStore::updateUserInfo(*secrets, {{"country", "NZ"}});
  std::vector<std::string> operations;
  auto watching = dependencies();
  watching.secretsStorage = std::make_shared<WatchedSecretsStorage>(
      secrets, [&](auto operation) { operations.push_back(std::move(operation)); });
  manager.start(watching);
  manager.trackUserAction(someAction);
  EXPECT_THAT(operations, ElementsAre("lock", "read Kite-User-Info", "unlock"));
}

TEST_F(EventManagerImplTests, eventsBeforeAndAfterAChangeOfTheUserInfoCarryDifferentUsers) {
  start();
  UserInfoStore::updateUserInfo(*secrets, {{"plan", "a"}});
  manager.trackUserAction(someAction);
  UserInfoStore::updateUserInfo(*secrets, {{"plan", "b"}});
  manager.trackUserAction(someAction);
  const auto records = storage->inserted();
  EXPECT_EQ(records.at(0).user->info, (JSONValue::Object{{"plan", "a"}}));
  EXPECT_EQ(records.at(1).user->info, (JSONValue::Object{{"plan", "b"}}));
}

TEST_F(EventManagerImplTests, eventsBeforeAndAfterAChangeOfAnIdentifierCarryDifferentUsers) {
  start();
  manager.trackUserAction(someAction);
  usher->set("custom", {"value", Usher::CreationType::notApplicable});
  manager.trackUserAction(someAction);
  const auto records = storage->inserted();
  EXPECT_FALSE(records.at(0).user->ids.contains("custom"));
  EXPECT_TRUE(records.at(1).user->ids.contains("custom"));
}

TEST_F(EventManagerImplTests, eventsShareOneUserForAsLongAsNothingChanges) {
  start();
  UserInfoStore::updateUserInfo(*secrets, {{"plan", "a"}});
  trackEveryKind();
  const auto records = storage->inserted();
  for (const auto& record : records) EXPECT_TRUE(record.user.isSame(records.front().user));
}

TEST_F(EventManagerImplTests, threadsMayTrackWhileTheUserInfoChanges) {
  start();
  std::thread changing([&] {
    for (int i = 0; i < 100; ++i) UserInfoStore::updateUserInfo(*secrets, {{"a", i}, {"b", i}});
  });
  std::thread tracking([&] {
    for (int i = 0; i < 100; ++i) manager.trackUserAction(someAction);
  });
  for (int i = 0; i < 100; ++i) manager.trackUserAction(someAction);
  changing.join();
  tracking.join();
  const auto records = storage->inserted();
  EXPECT_THAT(records, SizeIs(200));
  for (const auto& record : records) {
    const auto& info = record.user->info;
    if (info.empty()) continue;
    EXPECT_EQ(*info.at("a"), *info.at("b")) << "half of an update";
  }
}

TEST_F(EventManagerImplTests, theFirstEventMigratesTheUserInfoAndCarriesTheResult) {
  start();
  secrets->put("USUserInfo", keyedArchive({{"age", "<integer>42</integer>"}}));
  manager.trackUserAction(someAction);
  EXPECT_EQ(onlyRecord().user->info, (JSONValue::Object{{"age", 42}}));
  EXPECT_EQ(secrets->text("Kite-User-Info"), R"({"data":{"age":42}})");
}

TEST_F(EventManagerImplTests, aReservedTableNameStopsTheProcessInTheTrackCall) {
  start();
  EXPECT_FATAL(manager.trackCustomEvent("Session", aCustomEvent),
               "You cannot use Session as a name for a custom event.");
  EXPECT_THAT(storage->inserted(), IsEmpty());
}

TEST_F(EventManagerImplTests, aCustomEventCarriesItsTableAndItsDataAsTheyAre) {
  start();
  manager.trackCustomEvent("Orders", aCustomEvent);
  EXPECT_EQ(onlyRecord().type, EventType::custom("Orders"));
  EXPECT_EQ(onlyRecord().data, (JSONValue::Object{{"total", 3}}));
}

TEST_F(EventManagerImplTests, allIdsKeepsTheNamesAndDropsHowTheIdentifiersCameAbout) {
  EXPECT_THAT(allIds({{"b", {"2", Usher::CreationType::justGenerated}},
                      {"a", {"1", Usher::CreationType::readFromFile}}}),
              ElementsAre(Pair("a", "1"), Pair("b", "2")));
}

}  // namespace
}  // namespace kite::test
