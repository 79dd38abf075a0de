#include "Queue/EventManagerImpl.h"

#include "Events/ExperimentSegmentsReceived.h"
#include "Profile/UserInfo.h"
#include "Queue/EventStorage.h"

#include <utility>

namespace kite {

std::map<std::string, std::string, std::less<>> allIds(const Usher::Ids& ids) {
  std::map<std::string, std::string, std::less<>> values;
  for (const auto& [name, id] : ids) values.emplace_hint(values.end(), name, id.value);
  return values;
}

void EventManagerImpl::start(EventManagerDependencies dependencies) {
  _dependencies.set(std::move(dependencies));
  _isEnabled = true;
}

Shared<User> EventManagerImpl::kiteUser() { return user(*_dependencies.get()); }

// The info is read before the identifiers. It is not read again while its store is unchanged.
Shared<User> EventManagerImpl::user(const Running& running) {
  auto& secrets = *running.secretsStorage;
  const auto revision = secrets.revision();
  const bool isKnown = running.revision == revision;
  const auto info = isKnown ? nullptr : UserInfoStore::userInfo(secrets);
  const auto ids = running.idProvider->ids();
  auto user = userMadeOf(running, revision, info, ids);
  // Another thread knows an earlier info by now.
  if (!user) user = userMadeOf(running, revision, UserInfoStore::userInfo(secrets), ids);
  return Shared<User>(std::move(user));
}

/// Without `info` of what is known of this revision; null when nothing is.
std::shared_ptr<const User> EventManagerImpl::userMadeOf(
    const Running& running, std::uint64_t revision, std::shared_ptr<const UserInfo> info,
    const std::shared_ptr<const Usher::Ids>& ids) {
  return running.user.with([&](auto& known) -> std::shared_ptr<const User> {
    const bool isInfoKnown = known && (info ? known->info == info : known->revision == revision);
    if (!info && !isInfoKnown) return nullptr;
    if (!isInfoKnown || known->ids != ids) {
      if (!info) info = known->info;
      auto user = std::make_shared<const User>(User{.info = info->data, .ids = allIds(*ids)});
      known.emplace(KnownUser{revision, std::move(info), ids, std::move(user)});
    }
    known->revision = revision;
    running.revision = revision;
    return known->user;
  });
}

template <class MakeEvent>
void EventManagerImpl::track(MakeEvent makeEvent) {
  if (!_isEnabled) return;
  const auto dependencies = _dependencies.get();
  dependencies->storage->insert(
      StoredEvent::from(makeEvent(*dependencies, user(*dependencies)), dependencies->lumoID));
}

void EventManagerImpl::trackInstallEvent(InstallPayload payload) {
  track([&](const auto& dependencies, const auto& user) {
    return InstallEvent(std::move(payload), user, dependencies.storefrontProvider());
  });
}

void EventManagerImpl::trackSession(SessionSubtype session) {
  track([&](const auto& dependencies, const auto& user) {
    return SessionEvent(std::move(session), user, dependencies.storefrontProvider());
  });
}

void EventManagerImpl::trackUserInfoUpdated(UserInfoUpdated::Payload payload) {
  track([&](const auto&, const auto& user) { return UserInfoUpdated(std::move(payload), user); });
}

void EventManagerImpl::trackUserAction(UserAction::Payload payload) {
  if (!_isEnabled) return;
  const auto dependencies = _dependencies.get();
  dependencies->storage->insert({std::move(payload), user(*dependencies), dependencies->lumoID});
}

void EventManagerImpl::trackCustomEvent(std::string table, CustomEvent::Payload payload) {
  track([&](const auto&, const auto& user) {
    return CustomEvent(std::move(table), std::move(payload), user);
  });
}

void EventManagerImpl::trackDebugEvent(DebugEvent::Payload payload) {
  track([&](const auto&, const auto& user) { return DebugEvent(std::move(payload), user); });
}

void EventManagerImpl::trackExperimentSegmentsReceived() {
  track([](const auto& dependencies, const auto& user) {
    auto id = dependencies.uuidGenerator().text();
    return ExperimentSegmentsReceived(std::move(id), dependencies.now().secondsSince1970, user);
  });
}

}  // namespace kite
