#include <Kite/Kite.h>

#include "Install/InstallManagerImpl.h"
#include "JSON/DynamicConversion.h"
#include "Queue/EventManagerImpl.h"
#include "Queue/EventStorageImpl.h"
#include "Sessions/SessionManagerImpl.h"
#include "Support/TestWorld.h"
#include "Upload/KiteAPIManagerImpl.h"
#include "Upload/SynchronizationManagerImpl.h"

#include <gtest/gtest.h>

#include <string>

namespace kite {
namespace {

/// Each of these runs in a process of its own, which must die by an abort with the message on
/// standard error.
class FatalMessagesTests : public testing::Test {
 protected:
  FatalMessagesTests() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

  static std::string fatal(const std::string& message, const std::string& file) {
    return "Fatal error: " + message + ": file " + file + ", line ";
  }
};

TEST_F(FatalMessagesTests, theFacadeBeforeStart) {
  EXPECT_EXIT(KiteManagerImpl().keychainId(), testing::KilledBySignal(SIGABRT),
              fatal("Call start before using Kite", "Kite/Kite") + "325");
}

/// Every operation that stops the process before `start` is named on a second line.
TEST_F(FatalMessagesTests, theOperationThatWasCalledTooEarly) {
  using Operation = void (*)(KiteManager&);
  const std::pair<const char*, Operation> operations[] = {
      {"sessionDataKiteValue", [](auto& kite) { kite.sessionDataKiteValue(); }},
      {"userInfoKiteValue", [](auto& kite) { kite.userInfoKiteValue(); }},
      {"firstInstallTimestamp", [](auto& kite) { kite.firstInstallTimestamp(); }},
      {"keychainId", [](auto& kite) { kite.keychainId(); }},
      {"userDefaultsId", [](auto& kite) { kite.userDefaultsId(); }},
      {"currentSessionId", [](auto& kite) { kite.currentSessionId(); }},
      {"currentProcessId", [](auto& kite) { kite.currentProcessId(); }},
      {"installedBeforeKite", [](auto& kite) { kite.installedBeforeKite(); }},
      {"updateSessionData", [](auto& kite) { kite.updateSessionData({}); }},
      {"addUserInfo", [](auto& kite) { kite.addUserInfo("a", 1); }},
      {"updateUserInfo", [](auto& kite) { kite.updateUserInfo({}); }},
      {"trackExperimentSegmentsReceived",
       [](auto& kite) { kite.trackExperimentSegmentsReceived({}); }},
      {"monetizationFieldsDidChange", [](auto& kite) { kite.monetizationFieldsDidChange({}); }},
      {"isBaselineUserDidChange", [](auto& kite) { kite.isBaselineUserDidChange(true); }},
      {"isFreeUserDidChange", [](auto& kite) { kite.isFreeUserDidChange(true); }},
      {"setAnalyticsTrackingConsent", [](auto& kite) { kite.setAnalyticsTrackingConsent(true); }},
      {"setProfilingTrackingConsent", [](auto& kite) { kite.setProfilingTrackingConsent(true); }},
  };
  for (const auto& [name, operation] : operations) {
    const auto call = operation;
    EXPECT_EXIT(
        {
          KiteManagerImpl kite;
          call(kite);
        },
        testing::KilledBySignal(SIGABRT),
        "^Fatal error: [^\n]*: file [^\n]*, line [0-9]+\nin " + std::string(name) + "\n$");
  }
}

TEST_F(FatalMessagesTests, aBundleWithAMissingPart) {
  EXPECT_EXIT(
      {
        test::TestWorld world;
        auto bundle = world.dependencies();
        bundle.sessionListener.onSessionStart = nullptr;
        KiteManagerImpl().start(bundle);
      },
      testing::KilledBySignal(SIGABRT),
      "^Fatal error: KiteDependencies.sessionListener.onSessionStart is missing: file Kite/Kite, "
      "line [0-9]+\nin start\n$");
}

TEST_F(FatalMessagesTests, theEventManagerBeforeStart) {
  EXPECT_EXIT(EventManagerImpl().kiteUser(), testing::KilledBySignal(SIGABRT),
              fatal("Call start before using the event manager", "EventManagerImpl") + "14");
}

TEST_F(FatalMessagesTests, theEventStorageBeforeStart) {
  EXPECT_EXIT(std::make_shared<EventStorageImpl>()->removeEvents({}),
              testing::KilledBySignal(SIGABRT),
              fatal("Call start before using the EventStorage", "EventStorage") + "84");
}

TEST_F(FatalMessagesTests, theSynchronizationManagerBeforeStart) {
  EXPECT_EXIT(std::make_shared<SynchronizationManagerImpl>(System::live())->sync(false),
              testing::KilledBySignal(SIGABRT),
              "Fatal error: Call start before trying to use the synch manager: file ");
}

TEST_F(FatalMessagesTests, theAPIManagerBeforeStart) {
  EXPECT_EXIT(std::make_shared<KiteAPIManagerImpl>(System::live())
                  ->send({}, [](const auto&, bool, const auto&, const auto&) {}),
              testing::KilledBySignal(SIGABRT),
              "Fatal error: Call start before using the APIManager: file ");
}

TEST_F(FatalMessagesTests, theSessionManagerBeforeStart) {
  EXPECT_EXIT(std::make_shared<SessionManagerImpl>(System::live())->currentSession(),
              testing::KilledBySignal(SIGABRT),
              fatal("Call start before using the SessionManager", "Kite/SessionManagerImpl"));
}

TEST_F(FatalMessagesTests, theInstallManagerBeforeStart) {
  EXPECT_EXIT(InstallManagerImpl(System::live()).ssInfo(), testing::KilledBySignal(SIGABRT),
              fatal("Call start before using the InstallManager", "Kite/InstallManagerImpl"));
}

TEST_F(FatalMessagesTests, aConsentSetterBeforeStart) {
  EXPECT_EXIT(TrackingConsentManager::live()._setAnalyticsTrackingConsent(true),
              testing::KilledBySignal(SIGABRT),
              fatal("TrackingConsentManager not started yet", "Kite/TrackingConsent.Live"));
}

TEST_F(FatalMessagesTests, theProcessIdentifierBeforeStart) {
  EXPECT_EXIT(KiteManagerImpl().currentProcessId(), testing::KilledBySignal(SIGABRT),
              fatal("The process identifier is drawn by start", "Kite/Kite"));
}

TEST_F(FatalMessagesTests, aCustomEventNamedSession) {
  EXPECT_EXIT(static_cast<void>(EventType::custom("Session").rawValue()),
              testing::KilledBySignal(SIGABRT),
              fatal("You cannot use Session as a name for a custom event.", "Event") + "99");
}

TEST_F(FatalMessagesTests, aCustomEventNamedExperimentSegmentReceived) {
  EXPECT_EXIT(
      static_cast<void>(EventType::custom("ExperimentSegmentReceived").rawValue()),
      testing::KilledBySignal(SIGABRT),
      fatal("You cannot use ExperimentSegmentReceived as a name for a custom event.", "Event"));
}

TEST_F(FatalMessagesTests, aCustomEventNamedInstall) {
  EXPECT_EXIT(static_cast<void>(EventType::custom("Install").rawValue()),
              testing::KilledBySignal(SIGABRT),
              fatal("You cannot use Install as a name for a custom event.", "Event"));
}

TEST_F(FatalMessagesTests, aLegacyValueWithoutAJSONForm) {
  EXPECT_EXIT(migratedJSONValue(DynamicValue(Date{0})), testing::KilledBySignal(SIGABRT),
              fatal("User Info Migration failed", "UserInfo"));
}

TEST_F(FatalMessagesTests, anUnsignedNumberAboveTheSignedRange) {
  EXPECT_EXIT(KiteValue(std::uint64_t(-1)).toJSONValue(), testing::KilledBySignal(SIGABRT),
              "Fatal error: ");
}

}  // namespace
}  // namespace kite
