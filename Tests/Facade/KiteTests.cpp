#include <Kite/Kite.h>

#include "Support/CatchFatalErrors.h"
#include "Support/TestWorld.h"

#include <gmock/gmock.h>

namespace kite::test {
namespace {

using testing::ElementsAre;
using Object = JSONValue::Object;

constexpr const char* kiteNotStarted = "Call start before using Kite";

class KiteTests : public testing::Test {
 protected:
  TestWorld world;
  KiteManagerImpl kite{world.system.system()};

  void SetUp() override { world.network.respond(answers(500)); }

  void start() { kite.start(world.dependencies()); }

  std::vector<Object> dataOf(std::string_view type) {
    std::vector<Object> found;
    for (const auto& event : world.flushedEvents(type))
      found.push_back(*event.at("data")->object());
    return found;
  }
  std::vector<std::string> types() {
    std::vector<std::string> found;
    for (const auto& event : world.flushedEvents())
      found.push_back(*event.object()->at("type")->string());
    return found;
  }
};

TEST_F(KiteTests, isSilentBeforeStartWhereItIsGatedByEnabled) {
  kite.addSessionData("a", 1);
  kite.trackUserAction("a", {});
  kite.trackCustomEvent("a", {});
  kite.trackLog("a", Severity::debug, {});
  kite.trackDebugEvent({.severity = Severity::debug, .message = "m", .category = "c"});
  EXPECT_EQ(world.keyValues->writes(), 0);
  start();
  EXPECT_TRUE(dataOf("UserAction").empty());
  EXPECT_TRUE(dataOf("DebugEvent").empty());
}

TEST_F(KiteTests, stopsTheProcessBeforeStartWhereItNeedsTheBundle) {
  CatchFatalErrors trap;
  EXPECT_FATAL(kite.userInfoKiteValue(), kiteNotStarted);
  EXPECT_FATAL(kite.keychainId(), kiteNotStarted);
  EXPECT_FATAL(kite.userDefaultsId(), kiteNotStarted);
  EXPECT_FATAL(kite.installedBeforeKite(), kiteNotStarted);
  EXPECT_FATAL(kite.addUserInfo("a", 1), kiteNotStarted);
  EXPECT_FATAL(kite.updateUserInfo({}), kiteNotStarted);
  EXPECT_FATAL(kite.trackExperimentSegmentsReceived({}), kiteNotStarted);
  EXPECT_FATAL(kite.monetizationFieldsDidChange({}), kiteNotStarted);
  EXPECT_FATAL(kite.isBaselineUserDidChange(true), kiteNotStarted);
  EXPECT_FATAL(kite.isFreeUserDidChange(true), kiteNotStarted);
}

TEST_F(KiteTests, namesItsPlaceWhenItIsUsedBeforeStart) {
  CatchFatalErrors trap;
  try {
    kite.keychainId();
    FAIL() << "the process was not stopped";
  } catch (const FatalErrorRaised& raised) {
    EXPECT_STREQ(raised.where.file, "Kite/Kite");
    EXPECT_EQ(raised.where.line, 325U);
  }
}

TEST_F(KiteTests, managersStopTheProcessForReadsThatOnlyTheyCheck) {
  CatchFatalErrors trap;
  EXPECT_FATAL(kite.sessionDataKiteValue(), "Call start before using the SessionManager");
  EXPECT_FATAL(kite.currentSessionId(), "Call start before using the SessionManager");
  EXPECT_FATAL(kite.updateSessionData({}), "Call start before using the SessionManager");
  EXPECT_FATAL(kite.firstInstallTimestamp(), "Call start before using the InstallManager");
  EXPECT_FATAL(kite.setAnalyticsTrackingConsent(true), "TrackingConsentManager not started yet");
  EXPECT_FATAL(kite.currentProcessId(), "The process identifier is drawn by start");
}

TEST_F(KiteTests, firstLaunchRecordsUserInfoThenInstallThenSession) {
  world.usher->setCreationTypes(Usher::CreationType::justGenerated,
                                Usher::CreationType::justGenerated);
  start();
  EXPECT_THAT(types(), ElementsAre("UserInfoUpdated", "Install", "Session"));
}

TEST_F(KiteTests, aUserActionInTheForegroundCarriesTheSession) {
  start();
  world.system.setNow(world.time->now() + 1.25);
  kite.trackUserAction("checkout", {{"items", 3}, {"gift", true}, {"price", 12.5}});
  const auto actions = dataOf("UserAction");
  ASSERT_EQ(actions.size(), 1U);
  const Object expected{{"action_kind", "checkout"},
                        {"action_info", Object{{"items", 3}, {"gift", true}, {"price", 12.5}}},
                        {"seconds_from_session_start", 1.25},
                        {"session_id", kite.currentSessionId().text()},
                        {"process_id", kite.currentProcessId().text()},
                        {"last_foreground_session_id", Null{}},
                        {"is_background_event", false}};
  EXPECT_EQ(actions.front(), expected);
}

TEST_F(KiteTests, aUserActionInTheBackgroundCarriesTheLastForegroundSession) {
  start();
  const auto session = kite.currentSessionId().text();
  world.enterBackground();
  kite.trackUserAction("sync", {});
  const auto actions = dataOf("UserAction");
  ASSERT_EQ(actions.size(), 1U);
  const Object expected{{"action_kind", "sync"},
                        {"action_info", Object{}},
                        {"seconds_from_session_start", Null{}},
                        {"session_id", Null{}},
                        {"process_id", kite.currentProcessId().text()},
                        {"last_foreground_session_id", session},
                        {"is_background_event", true}};
  EXPECT_EQ(actions.front(), expected);
}

TEST_F(KiteTests, aUserActionThatConsentRefusesIsNotRecorded) {
  start();
  kite.setAnalyticsTrackingConsent(false);
  kite.setProfilingTrackingConsent(false);
  kite.trackUserAction("checkout", {});
  EXPECT_TRUE(dataOf("UserAction").empty());
  kite.trackUserAction("privacy_settings_updated", {});
  EXPECT_EQ(dataOf("UserAction").size(), 1U);
}

TEST_F(KiteTests, namesMayBeAddedToTheTechnicalAndToTheProfilingOnlyEvents) {
  kite.addTechnicalEvents({"heartbeat"});
  kite.addProfilingOnlyEvents({"interests"});
  start();
  kite.setProfilingTrackingConsent(false);
  kite.trackUserAction("interests", {});
  kite.setAnalyticsTrackingConsent(false);
  kite.trackUserAction("heartbeat", {});
  const auto actions = dataOf("UserAction");
  ASSERT_EQ(actions.size(), 1U);
  EXPECT_EQ(*actions.front().at("action_kind"), JSONValue("heartbeat"));
}

TEST_F(KiteTests, aCustomEventInTheBackgroundIsNotRecorded) {
  start();
  world.enterBackground();
  kite.trackCustomEvent("Orders", {{"total", 1}});
  EXPECT_TRUE(dataOf("Orders").empty());
}

TEST_F(KiteTests, aCustomEventIsARowOfItsTable) {
  start();
  kite.trackCustomEvent("Orders", {{"total", 1}});
  EXPECT_THAT(dataOf("Orders"), ElementsAre(Object{{"total", 1}}));
}

TEST_F(KiteTests, aCustomEventWithAReservedNameStopsTheProcessInTheCall) {
  start();
  CatchFatalErrors trap;
  EXPECT_FATAL(kite.trackCustomEvent("Install", {}),
               "You cannot use Install as a name for a custom event.");
}

TEST_F(KiteTests, aLogBecomesADebugEventOfTheLegacyCategory) {
  start();
  kite.trackLog("cache rebuilt", Severity::notice, {{"entries", 7}});
  const Object expected{{"severity", "Notice"},
                        {"message", "cache rebuilt"},
                        {"category", "track_log_legacy"},
                        {"domain", Null{}},
                        {"code", Null{}},
                        {"type", Null{}},
                        {"description", Null{}},
                        {"info", Object{{"entries", 7}}},
                        {"file", "Sources/Core/Kite"},
                        {"function", "trackLog(name:severity:data:)"},
                        {"line", 618}};
  EXPECT_THAT(dataOf("DebugEvent"), ElementsAre(expected));
}

TEST_F(KiteTests, aDebugEventCarriesAllItsFieldsAndThePlaceOfTheCall) {
  start();
  kite.trackDebugEvent({.severity = Severity::critical,
                        .message = "decode failed",
                        .category = "network",
                        .domain = "d",
                        .code = "7",
                        .type = "t",
                        .description = "why",
                        .info = {{"bytes", 512U}},
                        .where = {"File.cpp", "decode()", 42}});
  const Object expected{{"severity", "Critical"},
                        {"message", "decode failed"},
                        {"category", "network"},
                        {"domain", "d"},
                        {"code", "7"},
                        {"type", "t"},
                        {"description", "why"},
                        {"info", Object{{"bytes", 512}}},
                        {"file", "File.cpp"},
                        {"function", "decode()"},
                        {"line", 42}};
  EXPECT_THAT(dataOf("DebugEvent"), ElementsAre(expected));
}

TEST_F(KiteTests, aDebugEventNamesItsCallerByItself) {
  start();
  kite.trackDebugEvent({.severity = Severity::debug, .message = "m", .category = "c"});
  const auto line = __LINE__ - 1;
  const auto data = dataOf("DebugEvent").front();
  EXPECT_EQ(*data.at("line"), JSONValue(line));
  EXPECT_THAT(*data.at("file")->string(), testing::EndsWith("KiteTests.cpp"));
}

TEST_F(KiteTests, aDebugEventMayLeaveOutItsPlace) {
  start();
  kite.trackDebugEvent({.severity = Severity::debug,
                        .message = "m",
                        .category = "c",
                        .where = {.file = nullptr, .function = nullptr, .line = 0}});
  const auto data = dataOf("DebugEvent").front();
  EXPECT_EQ(*data.at("file"), JSONValue(""));
  EXPECT_EQ(*data.at("function"), JSONValue(""));
}

TEST_F(KiteTests, theLineOfADebugEventKeepsAllOfItsBits) {
  start();
  constexpr std::uint64_t line = (std::uint64_t{1} << 32U) + 42;
  kite.trackDebugEvent({.severity = Severity::debug,
                        .message = "m",
                        .category = "c",
                        .where = {"File.cpp", "decode()", line}});
  EXPECT_EQ(*dataOf("DebugEvent").front().at("line"), JSONValue(std::int64_t{line}));
}

TEST_F(KiteTests, aDebugEventWhoseLineHasNoJSONFormStopsTheProcessInTheCall) {
  start();
  CatchFatalErrors trap;
  EXPECT_FATAL(kite.trackDebugEvent({.severity = Severity::debug,
                                     .message = "m",
                                     .category = "c",
                                     .where = {"File.cpp", "decode()", std::uint64_t{1} << 63U}}),
               "A number above the largest signed 64-bit integer has no JSON form");
}

TEST_F(KiteTests, sessionDataIsMergedAndTheNewValueWins) {
  start();
  kite.updateSessionData({{"a", 1}, {"b", 1}});
  kite.updateSessionData({{"a", 2}});
  const auto data = kite.sessionDataKiteValue();
  EXPECT_EQ(data.values().size(), 2U);
  EXPECT_EQ(data.at("a")->as<std::int64_t>(), 2);
  EXPECT_EQ(data.at("b")->as<std::int64_t>(), 1);
}

TEST_F(KiteTests, sessionDataReadsBackWithoutItsNulls) {
  start();
  kite.addSessionData("a", 1);
  kite.addSessionData("none", nullptr);
  EXPECT_FALSE(kite.sessionDataKiteValue().contains("none"));
  EXPECT_TRUE(kite.sessionDataKiteValue().contains("a"));
}

TEST_F(KiteTests, twoStartsDrawTwoProcessIdentifiersAndActionsCarryTheSecond) {
  start();
  const auto first = kite.currentProcessId();
  start();
  EXPECT_NE(kite.currentProcessId(), first);
  kite.trackUserAction("a", {});
  const auto actions = dataOf("UserAction");
  ASSERT_EQ(actions.size(), 1U);
  EXPECT_EQ(*actions.front().at("process_id"), JSONValue(kite.currentProcessId().text()));
}

TEST_F(KiteTests, theProcessAndTheSessionAreIdentifiedByTheBundlesIdentifiers) {
  start();
  EXPECT_EQ(kite.currentProcessId(), TestWorld::bundleUUID(1));
  EXPECT_EQ(kite.currentSessionId(), TestWorld::bundleUUID(2));
}

TEST_F(KiteTests, aSecondStartGoesOnWithTheNewBundle) {
  start();
  world.locale.regionCode = "NZ";
  auto second = world.dependencies();
  second.lumoID = "trail-maps-pro";
  kite.start(second);
  kite.trackUserAction("a", {});
  EXPECT_EQ(*world.flushedEvents("UserAction").front().at("app"), JSONValue("trail-maps-pro"));
  EXPECT_EQ(kite.userInfoKiteValue().at("country")->as<std::string>(), "NZ");
  EXPECT_EQ(*dataOf("UserInfoUpdated").back().at("updated_keys"),
            JSONValue(JSONValue::Array{"country"}));
}

TEST_F(KiteTests, identifiersAreTheIdentityProviders) {
  start();
  EXPECT_EQ(kite.keychainId(), "keychain");
  EXPECT_EQ(kite.userDefaultsId(), "user-defaults");
}

TEST_F(KiteTests, theFirstInstallTimestampIsTheOneOfTheSecretsStoreOrElseOfTheKeyValueStore) {
  world.keyValues->put("Kite-Install-Manager",
                       R"({"firstInstallTimestamp":2.5,"appVersion":"1.0"})");
  start();
  EXPECT_EQ(kite.firstInstallTimestamp(), 2.5);
  world.secrets->put("Kite-Install-Manager", R"({"firstInstallTimestamp":1.5})");
  EXPECT_EQ(kite.firstInstallTimestamp(), 1.5);
}

TEST_F(KiteTests, whetherTheApplicationIsOlderThanTheLibraryIsWhatTheHostSaid) {
  for (const bool installedBefore : {true, false}) {
    auto bundle = world.dependencies();
    bundle.installedBeforeKite = installedBefore;
    kite.start(bundle);
    EXPECT_EQ(kite.installedBeforeKite(), installedBefore);
  }
}

TEST_F(KiteTests, uploadsCarryTheHeadersOfTheBundle) {
  start();
  const auto requests = world.network.requests();
  ASSERT_FALSE(requests.empty());
  const auto& headers = requests.front().headerFields;
  EXPECT_EQ(requests.front().url.absoluteString(), "https://staging.test/v4/events");
  EXPECT_EQ(headers.at("Lumo-Id"), "trail-maps");
  EXPECT_EQ(headers.at("Kite-Client-ID"), "user-defaults");
  EXPECT_EQ(headers.at("Kite-Tester"), "true");
  EXPECT_EQ(headers.at("Kite-Version"), "iOS-4.0.0");
}

TEST_F(KiteTests, uploadsOfAnAppStoreBuildAreNoTesters) {
  world.kitbag.distributionChannel = DistributionChannel::appStore;
  start();
  const auto requests = world.network.requests();
  ASSERT_FALSE(requests.empty());
  EXPECT_EQ(requests.front().url.absoluteString(), "https://production.test/v4/events");
  EXPECT_EQ(requests.front().headerFields.at("Kite-Tester"), "false");
}

TEST_F(KiteTests, telemetryIsScopedToTheLibrary) {
  world.network.respond(answers(200));
  start();
  kite.trackUserAction("a", {{"bad", std::nan("")}});
  world.time->advance(Tempra::Duration(2));
  const auto reports = world.whisker->reports();
  ASSERT_EQ(reports.size(), 1U);
  EXPECT_THAT(reports.front().event.categories, ElementsAre("kite", "json_encoding_error"));
}

TEST_F(KiteTests, experimentSegmentsAreStoredAsIntegersAndReportedEvenWhenTheyDoNotChange) {
  start();
  kite.trackExperimentSegmentsReceived({{"color", 2}});
  kite.trackExperimentSegmentsReceived({{"color", 2}});
  EXPECT_EQ(kite.userInfoKiteValue().at("experiment")->toJSONValue(),
            JSONValue(Object{{"color", 2}}));
  EXPECT_THAT(dataOf("ExperimentSegmentReceived"), ElementsAre(Object{}, Object{}));
  EXPECT_EQ(*dataOf("UserInfoUpdated").back().at("updated_keys"),
            JSONValue(JSONValue::Array{"experiment"}));
  EXPECT_THAT(types(), ElementsAre("UserInfoUpdated", "Install", "Session", "UserInfoUpdated",
                                   "ExperimentSegmentReceived", "ExperimentSegmentReceived"));
}

TEST_F(KiteTests, aValueThatIsAddedToTheUserInfoIsConvertedStoredAndReported) {
  start();
  kite.addUserInfo("registered", Date{12.5});
  EXPECT_EQ(kite.userInfoKiteValue().at("registered")->as<double>(), 12.5);
  EXPECT_EQ(*dataOf("UserInfoUpdated").back().at("updated_keys"),
            JSONValue(JSONValue::Array{"registered"}));
}

TEST_F(KiteTests, anUpdateOfTheUserInfoIsMergedStoredAndReported) {
  start();
  kite.updateUserInfo({{"a", 1}, {"b", 1}});
  kite.updateUserInfo({{"a", 2}});
  const auto info = kite.userInfoKiteValue();
  EXPECT_EQ(info.at("a")->as<std::int64_t>(), 2);
  EXPECT_EQ(info.at("b")->as<std::int64_t>(), 1);
  EXPECT_EQ(dataOf("UserInfoUpdated").size(), 3U);  // the first is start's
  EXPECT_EQ(*dataOf("UserInfoUpdated").back().at("updated_keys"), JSONValue(JSONValue::Array{"a"}));
}

TEST_F(KiteTests, theUserInfoReadsBackWithoutItsNulls) {
  start();
  EXPECT_FALSE(kite.userInfoKiteValue().contains("is_frozen_app"));
  EXPECT_TRUE(kite.userInfoKiteValue().contains("country"));
}

TEST_F(KiteTests, theTwoFlagsAreKeptUnderKeysOfTheirOwn) {
  start();
  kite.isBaselineUserDidChange(true);
  EXPECT_EQ(kite.userInfoKiteValue().at("is_baseline")->as<bool>(), true);
  EXPECT_FALSE(kite.userInfoKiteValue().contains("is_free"));
  kite.isFreeUserDidChange(false);
  EXPECT_EQ(kite.userInfoKiteValue().at("is_free")->as<bool>(), false);
  EXPECT_EQ(kite.userInfoKiteValue().at("is_baseline")->as<bool>(), true);
}

TEST_F(KiteTests, textThatIsNotUTF8IsRepairedOnEntry) {
  start();
  kite.trackCustomEvent("T\xff", {{"k\xff", "v\xff"}});
  kite.addSessionData("s\xff", "x");
  EXPECT_THAT(dataOf("T\uFFFD"), ElementsAre(Object{{"k\uFFFD", "v\uFFFD"}}));
  EXPECT_TRUE(kite.sessionDataKiteValue().contains("s\uFFFD"));
}

}  // namespace
}  // namespace kite::test
