#include "Queue/EventManagerImpl.h"

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

Shared<User> EventManagerImpl::kiteUser() { return origin(*_dependencies.get())->user; }

// The info is read before the identifiers. It is not read again while its store is unchanged.
std::shared_ptr<const EventOrigin> EventManagerImpl::origin(const Running& running) {
  auto& secrets = *running.secretsStorage;
  const auto revision = secrets.revision();
  const bool isKnown = running.revision == revision;
  const auto info = isKnown ? nullptr : UserInfoStore::userInfo(secrets);
  const auto ids = running.idProvider->ids();
  auto origin = originMadeOf(running, revision, info, ids);
  // Another thread has cached an older info in the meantime: read it again.
  if (!origin) origin = originMadeOf(running, revision, UserInfoStore::userInfo(secrets), ids);
  return origin;
}

/// Without `info`, of the one that is cached for this revision; null when there is none.
std::shared_ptr<const EventOrigin> EventManagerImpl::originMadeOf(
    const Running& running, std::uint64_t revision, std::shared_ptr<const UserInfo> info,
    const std::shared_ptr<const Usher::Ids>& ids) {
  return running.user.with([&](auto& known) -> std::shared_ptr<const EventOrigin> {
    const bool isInfoKnown = known && (info ? known->info == info : known->revision == revision);
    if (!info && !isInfoKnown) return nullptr;
    if (!isInfoKnown || known->ids != ids) {
      if (!info) info = known->info;
      const User user{.info = info->data, .ids = allIds(*ids)};
      auto origin = std::make_shared<const EventOrigin>(EventOrigin{running.lumoID, user});
      known.emplace(KnownUser{revision, std::move(info), ids, std::move(origin)});
    }
    known->revision = revision;
    running.revision = revision;
    return known->origin;
  });
}

// `makeEvent` runs after the user has been read.
template <class MakeEvent>
void EventManagerImpl::track(MakeEvent makeEvent, bool isInForeground) {
  if (!_isEnabled) return;
  const auto dependencies = _dependencies.get();
  auto origin = this->origin(*dependencies);
  auto insertion = std::make_unique<PendingChange>(std::in_place_type<TrackedEvent>,
                                                   makeEvent(*dependencies), std::move(origin));
  insertion->mayWait = isInForeground;
  dependencies->storage->insert(std::move(insertion));
}

void EventManagerImpl::trackInstallEvent(InstallPayload payload) {
  track([&](const auto& dependencies) {
    return InstallEvent{std::move(payload), dependencies.storefrontProvider()};
  });
}

void EventManagerImpl::trackSession(SessionSubtype session) {
  track([&](const auto& dependencies) {
    return SessionEvent{std::move(session), dependencies.storefrontProvider()};
  });
}

void EventManagerImpl::trackUserInfoUpdated(UserInfoUpdated::Payload payload) {
  track([&](const auto&) -> auto&& { return std::move(payload); });
}

// The facade has just asked where the application is, and makes custom events in the foreground
// only.
void EventManagerImpl::trackUserAction(UserAction::Payload payload) {
  const bool isInForeground = !payload.isBackgroundEvent;
  track(
      [&](const auto&) -> auto&& { return std::move(payload); }, isInForeground);
}

void EventManagerImpl::trackCustomEvent(std::string table, CustomEvent::Payload payload) {
  track(
      [&](const auto&) {
        return CustomEvent{std::move(table), std::move(payload)};
      },
      /*isInForeground=*/true);
}

void EventManagerImpl::trackDebugEvent(DebugEvent::Payload payload) {
  track([&](const auto&) -> auto&& { return std::move(payload); });
}

void EventManagerImpl::trackExperimentSegmentsReceived() {
  track([](const auto& dependencies) {
    const UUID id = dependencies.uuidGenerator();
    return ExperimentSegmentsReceived{id, dependencies.now().secondsSince1970};
  });
}

}  // namespace kite
