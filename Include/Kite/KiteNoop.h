#pragma once

#include <Kite/Base/Export.h>
#include <Kite/KiteManager.h>

namespace kite {

/// A facade that starts nothing, stores nothing, records nothing, and answers every read with a
/// placeholder.
class KITE_EXPORT KiteNoop final : public KiteManager {
 public:
  KiteNoop();

  KiteData sessionDataKiteValue() override { return _sessionDataKiteValue; }
  KiteData userInfoKiteValue() override { return _userInfoKiteValue; }
  std::optional<double> firstInstallTimestamp() override { return _firstInstallTimestamp; }
  std::string keychainId() override { return _keychainId; }
  std::string userDefaultsId() override { return _userDefaultsId; }
  UUID currentSessionId() override { return _currentSessionId; }
  UUID currentProcessId() override { return _currentProcessId; }
  bool installedBeforeKite() override { return _installedBeforeKite; }

  void start(KiteDependencies dependencies) override;
  void addSessionData(std::string_view, const KiteValue&) override {}
  void updateSessionData(KiteData) override {}
  void addUserInfo(std::string_view, const KiteValue&) override {}
  void updateUserInfo(KiteData) override {}
  void trackUserAction(std::string_view, KiteData) override {}
  void trackCustomEvent(std::string_view, KiteData) override {}
  void trackLog(std::string_view, Severity, KiteData) override {}
  void trackDebugEvent(DebugEventArguments) override {}
  void trackExperimentSegmentsReceived(const std::map<std::string, std::int64_t>&) override {}
  void monetizationFieldsDidChange(KiteData) override {}
  void isBaselineUserDidChange(bool) override {}
  void isFreeUserDidChange(bool) override {}
  void setAnalyticsTrackingConsent(bool) override {}
  void setProfilingTrackingConsent(bool) override {}
  void addTechnicalEvents(const std::set<std::string>&) override {}
  void addProfilingOnlyEvents(const std::set<std::string>&) override {}

 private:
  KiteData _sessionDataKiteValue;
  KiteData _userInfoKiteValue;
  std::optional<double> _firstInstallTimestamp;
  std::string _keychainId;
  std::string _userDefaultsId;
  UUID _currentSessionId;
  UUID _currentProcessId;
  bool _installedBeforeKite = false;
};

}  // namespace kite
