#pragma once

#include <Kite/KiteDependencies.h>
#include <Kite/KiteManager.h>

#include <gmock/gmock.h>

#include <ostream>

namespace kite::test {

/// A facade that tells a test what it is asked to do.
class MockKiteManager : public KiteManager {
 public:
  MOCK_METHOD(KiteData, sessionDataKiteValue, (), (override));
  MOCK_METHOD(KiteData, userInfoKiteValue, (), (override));
  MOCK_METHOD(std::optional<double>, firstInstallTimestamp, (), (override));
  MOCK_METHOD(std::string, keychainId, (), (override));
  MOCK_METHOD(std::string, userDefaultsId, (), (override));
  MOCK_METHOD(UUID, currentSessionId, (), (override));
  MOCK_METHOD(UUID, currentProcessId, (), (override));
  MOCK_METHOD(bool, installedBeforeKite, (), (override));
  MOCK_METHOD(void, start, (KiteDependencies), (override));
  MOCK_METHOD(void, addSessionData, (std::string_view, const KiteValue&), (override));
  MOCK_METHOD(void, updateSessionData, (KiteData), (override));
  MOCK_METHOD(void, addUserInfo, (std::string_view, const KiteValue&), (override));
  MOCK_METHOD(void, updateUserInfo, (KiteData), (override));
  MOCK_METHOD(void, trackUserAction, (std::string_view, KiteData), (override));
  MOCK_METHOD(void, trackCustomEvent, (std::string_view, KiteData), (override));
  MOCK_METHOD(void, trackLog, (std::string_view, Severity, KiteData), (override));
  MOCK_METHOD(void, trackDebugEvent, (DebugEventArguments), (override));
  MOCK_METHOD(void, trackExperimentSegmentsReceived, ((const std::map<std::string, std::int64_t>&)),
              (override));
  MOCK_METHOD(void, monetizationFieldsDidChange, (KiteData), (override));
  MOCK_METHOD(void, isBaselineUserDidChange, (bool), (override));
  MOCK_METHOD(void, isFreeUserDidChange, (bool), (override));
  MOCK_METHOD(void, setAnalyticsTrackingConsent, (bool), (override));
  MOCK_METHOD(void, setProfilingTrackingConsent, (bool), (override));
  MOCK_METHOD(void, addTechnicalEvents, (const std::set<std::string>&), (override));
  MOCK_METHOD(void, addProfilingOnlyEvents, (const std::set<std::string>&), (override));
};

}  // namespace kite::test
