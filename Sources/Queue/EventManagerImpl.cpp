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

// The info is read before the identifiers, and not again while its store is unchanged. Threads that
// come here at the same time may each make an origin; the next call keeps to the last one.
std::shared_ptr<const EventOrigin> EventManagerImpl::origin(const Running& running) {
  auto& secrets = *running.secretsStorage;
  const auto revision = secrets.revision();
  const auto known = running.user.read();
  const bool isInfoKnown = known && known->revision == revision;
  const auto read = isInfoKnown ? nullptr : UserInfoStore::userInfo(secrets);
  const auto& info = isInfoKnown ? known->info : read;
  auto ids = running.idProvider->ids();
  const bool isSameUser = known && known->info == info && known->ids == ids;
  if (isInfoKnown && isSameUser) return known->origin;
  auto origin = isSameUser ? known->origin
                           : std::make_shared<const EventOrigin>(EventOrigin{
                                 running.lumoID, User{.info = info->data, .ids = allIds(*ids)}});
  running.user.set(KnownUser{revision, info, std::move(ids), origin});
  return origin;
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
