#pragma once

#include <Kite/Base/Export.h>
#include <Kite/KiteManager.h>
#include <Kite/Platform/System.h>

#include <functional>
#include <memory>
#include <string_view>
#include <type_traits>

namespace kite {

struct KiteState;

/// The live facade: created empty, started once.
///
/// Destroying it stops its timers; what is queued for storage or upload at that moment may go
/// unwritten, as when the process ends. It must not be destroyed while one of its operations runs.
class KITE_EXPORT KiteManagerImpl final : public KiteManager {
 public:
  explicit KiteManagerImpl(System system = System::live());
  ~KiteManagerImpl() override;
  KiteManagerImpl(const KiteManagerImpl&) = delete;
  KiteManagerImpl& operator=(const KiteManagerImpl&) = delete;

  KiteData sessionDataKiteValue() override;
  KiteData userInfoKiteValue() override;
  std::optional<double> firstInstallTimestamp() override;
  std::string keychainId() override;
  std::string userDefaultsId() override;
  UUID currentSessionId() override;
  UUID currentProcessId() override;
  bool installedBeforeKite() override;

  void start(KiteDependencies dependencies) override;

  void addSessionData(std::string_view key, const KiteValue& value) override;
  void updateSessionData(KiteData data) override;
  void addUserInfo(std::string_view key, const KiteValue& value) override;
  void updateUserInfo(KiteData data) override;
  void trackUserAction(std::string_view name, KiteData data) override;
  void trackCustomEvent(std::string_view table, KiteData data) override;
  void trackLog(std::string_view name, Severity severity, KiteData data) override;
  void trackDebugEvent(DebugEventArguments arguments) override;
  void trackExperimentSegmentsReceived(
      const std::map<std::string, std::int64_t>& segments) override;
  void monetizationFieldsDidChange(KiteData newValue) override;
  void isBaselineUserDidChange(bool newValue) override;
  void isFreeUserDidChange(bool newValue) override;
  void setAnalyticsTrackingConsent(bool value) override;
  void setProfilingTrackingConsent(bool value) override;
  void addTechnicalEvents(const std::set<std::string>& names) override;
  void addProfilingOnlyEvents(const std::set<std::string>& names) override;

 private:
  friend KiteState;
  std::shared_ptr<KiteState> _state;
};

static_assert(std::is_default_constructible_v<KiteManagerImpl>);

}  // namespace kite
