#pragma once

#include <Kite/Base/Date.h>
#include <Kite/Base/Shared.h>
#include <Kite/KiteDependencies.h>

#include "Events/EventKinds.h"
#include "Events/User.h"

#include <functional>
#include <memory>
#include <string>

namespace kite {

class EventStorage;

struct EventManagerDependencies {
  std::shared_ptr<EventStorage> storage;
  std::shared_ptr<Usher::UsherManager> idProvider;
  std::shared_ptr<Larder::SecretsStorage> secretsStorage;
  std::string lumoID;
  StorefrontProvider storefrontProvider;
  std::function<Date()> now;
  std::function<UUID()> uuidGenerator;
};

/// The one place where events are made: attaches the current user, stamps the application, hands
/// over to the storage.
///
/// Runs on the caller's thread and does no I/O. It waits for the monitor of the secrets store
/// alone, which is not held while a profile is written. While disabled every `track…` does nothing
/// at all.
class EventManager {
 public:
  virtual ~EventManager() = default;

  virtual bool isEnabled() const = 0;
  virtual void setEnabled(bool value) = 0;
  virtual void start(EventManagerDependencies dependencies) = 0;

  /// The user as of now; the same object for as long as neither the user info nor an identifier
  /// changes.
  virtual Shared<User> kiteUser() = 0;

  virtual void trackInstallEvent(InstallPayload payload) = 0;
  virtual void trackSession(SessionSubtype session) = 0;
  virtual void trackUserInfoUpdated(UserInfoUpdated::Payload payload) = 0;
  virtual void trackUserAction(UserAction::Payload payload) = 0;
  virtual void trackCustomEvent(std::string table, CustomEvent::Payload payload) = 0;
  virtual void trackDebugEvent(DebugEvent::Payload payload) = 0;
  virtual void trackExperimentSegmentsReceived() = 0;
};

}  // namespace kite
