#include "Core/EventManagerImpl.h"

#include "Core/Event/ExperimentSegmentsReceived.h"
#include "Core/EventStorage.h"
#include "Core/UserInfo.h"

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

Shared<User> EventManagerImpl::user(const Running& running) {
  const auto revision = running.secretsStorage->revision();
  const auto ids = running.idProvider->ids();
  if (auto known = knownUser(running, revision, ids.get())) return Shared<User>(std::move(known));
  const auto info = UserInfoStore::userInfo(*running.secretsStorage);
  return running.user.with([&](auto& known) {
    if (!known || known->info != info || known->ids != ids) {
      auto user = std::make_shared<const User>(User{.info = info->data, .ids = allIds(*ids)});
      known.emplace(KnownUser{revision, info, ids, std::move(user)});
    }
    known->revision = revision;
    return Shared<User>(known->user);
  });
}

/// Null when anything that the user is made of may have changed.
std::shared_ptr<const User> EventManagerImpl::knownUser(const Running& running,
                                                        std::uint64_t revision,
                                                        const Usher::Ids* ids) {
  return running.user.with([&](const auto& known) {
    const bool isUnchanged = known && known->revision == revision && known->ids.get() == ids;
    return isUnchanged ? known->user : nullptr;
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
    return ExperimentSegmentsReceived(dependencies.uuidGenerator().text(),
                                      dependencies.now().secondsSince1970, user);
  });
}

}  // namespace kite
