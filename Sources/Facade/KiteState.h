#pragma once

#include <Kite/KiteDependencies.h>
#include <Kite/KiteManagerImpl.h>
#include <Kite/TrackingConsentManager.h>

#include "Base/ForkGuard.h"
#include "Base/LateInit.h"
#include "Base/Started.h"
#include "Install/InstallManager.h"
#include "Queue/EventManager.h"
#include "Queue/EventStorage.h"
#include "Sessions/SessionManager.h"
#include "Upload/KiteAPIManager.h"
#include "Upload/SynchronizationManager.h"

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace kite {

/// The texts under which the facade reports its own source.
inline constexpr const char* facadeSourcePath = "Sources/Core/Kite";

struct UserActionArguments {
  std::string_view name;
  KiteData data;
  Date now;
  UUID processId;
  bool appIsInBackground;
};

/// What the facade consists of. It is shared, so that an attribution reply that comes late can tell
/// whether the facade is still there.
struct KiteState : std::enable_shared_from_this<KiteState> {
  explicit KiteState(System system);
  static const std::shared_ptr<KiteState>& of(const KiteManagerImpl& kite) { return kite._state; }

  System system;
  ForkGuard home;
  std::shared_ptr<KiteAPIManager> apiManager;
  std::shared_ptr<EventLedger> ledger = std::make_shared<EventLedger>();
  std::shared_ptr<EventStorage> eventStorage;
  std::shared_ptr<EventManager> eventManager;
  std::shared_ptr<InstallManager> installManager;
  std::shared_ptr<SessionManager> sessionManager;
  std::shared_ptr<SynchronizationManager> synchronizationManager;
  std::atomic<bool> enabled = false;
  TrackingConsentManager trackingConsent;
  Started<KiteDependencies> dependencies{"Call start before using Kite", {"Kite/Kite", "", 325}};
  std::optional<std::function<void(std::string)>> fatalErrorForTests;
  LateInit<UUID> _currentProcessId{"The process identifier is drawn by start",
                                   {"Kite/Kite", "currentProcessId", 0}};

  void start(KiteDependencies bundle);
  UserAction::Payload prepareUserActionData(UserActionArguments arguments);
  void trackDebugEvent(DebugEventArguments arguments);
  void updateSessionData(const KiteData& data);

  void configureUserInfo();
  JSONValue::Object userInfo();
  void updateUserInfo(const JSONValue::Object& newData);
  void trackUserInfoUpdated(const JSONValue::Object& oldUserInfo,
                            const JSONValue::Object& newUserInfo, const JSONValue::Object& newData);
  void monetizationFieldsDidChange(const JSONValue::Object& newValue);
  void boolUserInfoDidChange(std::string_view key, bool newValue);

 private:
  void startAPIManager();
  void startEventStorage();
  void startEventManager();
  void startInstallManager();
  void startSessionManager();
  void startSynchronizationManager();
  void requestAttribution(const KiteDependencies& bundle, JSONValue::Object startupInfo);
  static std::optional<JSONValue> monetizationField(Larder::SecretsStorage& secrets);
  void updateUserInfo(Larder::SecretsStorage& secrets, const JSONValue::Object& newData);
  bool mayUpdate(const JSONValue::Object& newData) const;
};

}  // namespace kite
