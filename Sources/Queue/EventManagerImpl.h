#pragma once

#include "Base/Published.h"
#include "Base/Started.h"
#include "Events/TrackedEvent.h"
#include "Queue/EventManager.h"

#include <atomic>
#include <concepts>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

namespace kite {

struct UserInfo;

/// Every identifier of the user, reduced to its value.
std::map<std::string, std::string, std::less<>> allIds(const Usher::Ids& ids);

/// Disabled until it is started. Any thread may call it.
class EventManagerImpl final : public EventManager {
 public:
  bool isEnabled() const override { return _isEnabled; }
  void setEnabled(bool value) override { _isEnabled = value; }
  void start(EventManagerDependencies dependencies) override;
  Shared<User> kiteUser() override;
  void trackInstallEvent(InstallPayload payload) override;
  void trackSession(SessionSubtype session) override;
  void trackUserInfoUpdated(UserInfoUpdated::Payload payload) override;
  void trackUserAction(UserAction::Payload payload) override;
  void trackCustomEvent(std::string table, CustomEvent::Payload payload) override;
  void trackDebugEvent(DebugEvent::Payload payload) override;
  void trackExperimentSegmentsReceived() override;

 private:
  /// What events have in common, and what it was made of. While neither part changes events share
  /// one user, which is then encoded once for all of them.
  struct KnownUser {
    std::uint64_t revision;  // of the store
    std::shared_ptr<const UserInfo> info;
    std::shared_ptr<const Usher::Ids> ids;
    std::shared_ptr<const EventOrigin> origin;
  };

  /// One start's stores and the user that was read from them.
  struct Running : EventManagerDependencies {
    mutable Published<KnownUser> user{};
  };

  /// `isInForeground`: known to be so; then the event may wait before it is queued.
  template <class MakeEvent>
  void track(MakeEvent makeEvent, bool isInForeground = false);
  static std::shared_ptr<const EventOrigin> origin(const Running& running);

  Started<Running> _dependencies{"Call start before using the event manager",
                                 {"EventManagerImpl", "", 14}};
  std::atomic<bool> _isEnabled = false;
};

static_assert(std::default_initializable<EventManagerImpl>);

}  // namespace kite
