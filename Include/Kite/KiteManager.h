#pragma once

#include <Kite/Base/Export.h>
#include <Kite/Base/SourceLocation.h>
#include <Kite/Base/UUID.h>
#include <Kite/KiteValue.h>
#include <Kite/Severity.h>

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace kite {

class KiteDependencies;
class KiteNoop;

/// The arguments of `KiteManager::trackDebugEvent`, in order. `where` fills itself with the
/// caller's place.
struct DebugEventArguments {
  Severity severity;
  std::string message;
  std::string category;
  std::optional<std::string> domain = {};
  std::optional<std::string> code = {};
  std::optional<std::string> type = {};
  std::optional<std::string> description = {};
  KiteData info = {};
  SourceLocation where = {};
};

/// The library as its host sees it. Every operation may be called from any thread and returns
/// without waiting for the network; the tracking operations do not wait for storage either.
///
/// What an operation does before `start` is said with it: nothing, or stop the process as misuse.
/// No operation reports an error: whatever goes wrong later is retried, reported to telemetry or
/// dropped, as Docs/Guarantees.md says.
class KITE_EXPORT KiteManager {
 public:
  virtual ~KiteManager() = default;

  /// The current session's data. Stops the process before `start`.
  virtual KiteData sessionDataKiteValue() = 0;
  /// The user info that every event carries. Stops the process before `start`.
  virtual KiteData userInfoKiteValue() = 0;
  /// When the application was first started with the library, in seconds since 1970. Stops the
  /// process before `start`.
  virtual std::optional<double> firstInstallTimestamp() = 0;
  /// The identifier that survives a reinstallation. Stops the process before `start`.
  virtual std::string keychainId() = 0;
  /// The identifier of this installation. Stops the process before `start`.
  virtual std::string userDefaultsId() = 0;
  /// Stops the process before `start`.
  virtual UUID currentSessionId() = 0;
  /// Drawn anew by every `start`. Stops the process before it.
  virtual UUID currentProcessId() = 0;
  /// What the host said in its dependencies. Stops the process before `start`.
  virtual bool installedBeforeKite() = 0;

  /// Starts everything. Call once, early; there is no stop.
  virtual void start(KiteDependencies dependencies) = 0;

  /// Attaches a value to the current session; its end event carries it. Does nothing before
  /// `start`.
  virtual void addSessionData(std::string_view key, const KiteValue& value) = 0;
  /// Merges values into the current session's data; new values win. Stops the process before
  /// `start`.
  virtual void updateSessionData(KiteData data) = 0;
  /// Sets one value of the user info. Stops the process before `start`.
  virtual void addUserInfo(std::string_view key, const KiteValue& value) = 0;
  /// Merges values into the user info; new values win. Stops the process before `start`.
  virtual void updateUserInfo(KiteData data) = 0;

  /// Records what the user did, if tracking consent allows. Does nothing before `start`.
  virtual void trackUserAction(std::string_view name, KiteData data) = 0;
  /// Records a row for a table of the host's own, in the foreground only. Does nothing before
  /// `start`. The names "Session", "ExperimentSegmentReceived" and "Install" stop the process.
  virtual void trackCustomEvent(std::string_view table, KiteData data) = 0;
  /// Records a debug event of the category "track_log_legacy". Does nothing before `start`.
  virtual void trackLog(std::string_view name, Severity severity, KiteData data) = 0;
  /// Records a debug event. Does nothing before `start`.
  virtual void trackDebugEvent(DebugEventArguments arguments) = 0;
  /// Records which experiment segments the user is in. Stops the process before `start`.
  virtual void trackExperimentSegmentsReceived(
      const std::map<std::string, std::int64_t>& segments) = 0;

  /// Merges into the user info's "monetization". Stops the process before `start`.
  virtual void monetizationFieldsDidChange(KiteData newValue) = 0;
  /// Stops the process before `start`.
  virtual void isBaselineUserDidChange(bool newValue) = 0;
  /// Stops the process before `start`.
  virtual void isFreeUserDidChange(bool newValue) = 0;

  /// Consents are kept across restarts. Stops the process before `start`.
  virtual void setAnalyticsTrackingConsent(bool value) = 0;
  virtual void setProfilingTrackingConsent(bool value) = 0;
  /// Names of user actions that are allowed whatever the consents. Kept for this run only.
  virtual void addTechnicalEvents(const std::set<std::string>& names) = 0;
  /// Names of user actions that need the profiling consent. Kept for this run only.
  virtual void addProfilingOnlyEvents(const std::set<std::string>& names) = 0;

  /// A facade that does nothing, to be held where tracking is switched off.
  static KiteNoop noop();
};

}  // namespace kite
