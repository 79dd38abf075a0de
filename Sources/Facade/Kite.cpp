#include <Kite/KiteManagerImpl.h>

#include "Base/CurrentOperation.h"
#include "Base/Guarded.h"
#include "Facade/KiteState.h"
#include "JSON/UTF8.h"
#include "Profile/UserInfoKeys.h"

#include <utility>
#include <vector>

namespace kite {

namespace {

/// Where leak checkers can see it.
void keepForEver(std::shared_ptr<KiteState> state) {
  static auto& kept = *new Guarded<std::vector<std::shared_ptr<KiteState>>>;
  kept.with([&](auto& states) { states.push_back(std::move(state)); });
}

/// Does the work of a call on the state. A forked child leaves everything to its parent, whose
/// threads may have held any lock: there a call does nothing, and a read gives an empty value.
template <class Work>
auto call(KiteState& state, Work work) {
  using Result = decltype(work(state));
  return state.home.isOriginalProcess() ? work(state) : Result();
}

/// A call that fatal errors name.
template <class Work>
auto namedCall(KiteState& state, Work work, const char* name = __builtin_FUNCTION()) {
  const CurrentOperation operation(name);
  return call(state, std::move(work));
}

}  // namespace

KiteManagerImpl::KiteManagerImpl(System system)
    : _state(std::make_shared<KiteState>(std::move(system))) {}

KiteManagerImpl::~KiteManagerImpl() {
  if (!_state->home.isOriginalProcess()) keepForEver(std::move(_state));
}

KiteData KiteManagerImpl::sessionDataKiteValue() {
  return namedCall(*_state, [](KiteState& state) {
    return toKiteValue(state.sessionManager->currentSession()->sessionData);
  });
}

KiteData KiteManagerImpl::userInfoKiteValue() {
  return namedCall(*_state, [](KiteState& state) { return toKiteValue(state.userInfo()); });
}

std::optional<double> KiteManagerImpl::firstInstallTimestamp() {
  return namedCall(*_state, [](KiteState& state) {
    const auto fromSecrets = state.installManager->ssInfo().firstInstallTimestamp;
    return fromSecrets ? fromSecrets : state.installManager->kvInfo().firstInstallTimestamp;
  });
}

std::string KiteManagerImpl::keychainId() {
  return namedCall(
      *_state, [](KiteState& state) { return state.dependencies->idProvider->keychainId().value; });
}

std::string KiteManagerImpl::userDefaultsId() {
  return namedCall(*_state, [](KiteState& state) {
    return state.dependencies->idProvider->userDefaultsId().value;
  });
}

UUID KiteManagerImpl::currentSessionId() {
  return namedCall(*_state,
                   [](KiteState& state) { return state.sessionManager->currentSession()->id; });
}

UUID KiteManagerImpl::currentProcessId() {
  return namedCall(*_state, [](KiteState& state) { return state._currentProcessId.get(); });
}

bool KiteManagerImpl::installedBeforeKite() {
  return namedCall(*_state,
                   [](KiteState& state) { return state.dependencies->installedBeforeKite; });
}

void KiteManagerImpl::start(KiteDependencies dependencies) {
  namedCall(*_state, [&](KiteState& state) { state.start(std::move(dependencies)); });
}

void KiteManagerImpl::addSessionData(std::string_view key, const KiteValue& value) {
  namedCall(*_state, [&](KiteState& state) {
    value.requireJSON();
    if (!state.enabled) return;
    state.sessionManager->addSessionData(value.toJSONValue(), repairedUTF8(key));
  });
}

void KiteManagerImpl::updateSessionData(KiteData data) {
  namedCall(*_state, [&](KiteState& state) {
    data.requireJSON();
    state.updateSessionData(data);
  });
}

void KiteManagerImpl::addUserInfo(std::string_view key, const KiteValue& value) {
  namedCall(*_state, [&](KiteState& state) {
    value.requireJSON();
    state.dependencies.get();
    if (!state.enabled) return;
    state.updateUserInfo({{repairedUTF8(key), value.toJSONValue()}});
  });
}

void KiteManagerImpl::updateUserInfo(KiteData data) {
  namedCall(*_state, [&](KiteState& state) {
    data.requireJSON();
    state.updateUserInfo(toJSONObject(data));
  });
}

void KiteManagerImpl::trackUserAction(std::string_view name, KiteData data) {
  call(*_state, [&](KiteState& state) {
    data.requireJSON();
    const Date now = state.system.now();
    if (!state.enabled) return state.ledger->drop(&DroppedEvents::notStarted);
    if (!state.trackingConsent._canTrackUserAction(name))
      return state.ledger->drop(&DroppedEvents::noConsent);
    const auto bundle = state.dependencies.get();  // the managers read theirs within
    const bool inBackground = bundle->backgroundChecker.isInBackground();
    state.eventManager->trackUserAction(
        state.prepareUserActionData({.name = name,
                                     .data = std::move(data),
                                     .now = now,
                                     .processId = state._currentProcessId.get(),
                                     .appIsInBackground = inBackground}));
  });
}

// Custom events are rows of the foreground: in the background the call is dropped, and counted.
void KiteManagerImpl::trackCustomEvent(std::string_view table, KiteData data) {
  call(*_state, [&](KiteState& state) {
    data.requireJSON();
    if (!state.enabled) return state.ledger->drop(&DroppedEvents::notStarted);
    if (state.dependencies->backgroundChecker.isInBackground())
      return state.ledger->drop(&DroppedEvents::inBackground);
    state.eventManager->trackCustomEvent(repairedUTF8(table),
                                         {.data = toJSONObject(data),
                                          .id = state.system.randomUUID(),
                                          .timestamp = state.system.now().secondsSince1970});
  });
}

void KiteManagerImpl::trackLog(std::string_view name, Severity severity, KiteData data) {
  call(*_state, [&](KiteState& state) {
    data.requireJSON();
    if (!state.enabled) return state.ledger->drop(&DroppedEvents::notStarted);
    state.trackDebugEvent({.severity = severity,
                           .message = std::string(name),
                           .category = "track_log_legacy",
                           .info = std::move(data),
                           .where = {facadeSourcePath, "trackLog(name:severity:data:)", 618}});
  });
}

void KiteManagerImpl::trackDebugEvent(DebugEventArguments arguments) {
  call(*_state, [&](KiteState& state) {
    arguments.info.requireJSON();
    if (!state.enabled) return state.ledger->drop(&DroppedEvents::notStarted);
    state.trackDebugEvent(std::move(arguments));
  });
}

void KiteManagerImpl::trackExperimentSegmentsReceived(
    const std::map<std::string, std::int64_t>& segments) {
  namedCall(*_state, [&](KiteState& state) {
    JSONValue::Object::Entries entries;
    for (const auto& [name, segment] : segments) entries.emplace_back(repairedUTF8(name), segment);
    state.updateUserInfo({{std::string(UserInfoKeys::experimentUserInfoKey),
                           JSONValue::Object::fromUnsorted(std::move(entries))}});
    state.eventManager->trackExperimentSegmentsReceived();
  });
}

void KiteManagerImpl::monetizationFieldsDidChange(KiteData newValue) {
  namedCall(*_state, [&](KiteState& state) {
    newValue.requireJSON();
    state.monetizationFieldsDidChange(toJSONObject(newValue));
  });
}

void KiteManagerImpl::isBaselineUserDidChange(bool newValue) {
  namedCall(*_state, [&](KiteState& state) {
    state.boolUserInfoDidChange(UserInfoKeys::isBaselineKey, newValue);
  });
}

void KiteManagerImpl::isFreeUserDidChange(bool newValue) {
  namedCall(*_state, [&](KiteState& state) {
    state.boolUserInfoDidChange(UserInfoKeys::isFreeKey, newValue);
  });
}

void KiteManagerImpl::setAnalyticsTrackingConsent(bool value) {
  namedCall(*_state,
            [&](KiteState& state) { state.trackingConsent._setAnalyticsTrackingConsent(value); });
}

void KiteManagerImpl::setProfilingTrackingConsent(bool value) {
  namedCall(*_state,
            [&](KiteState& state) { state.trackingConsent._setProfilingTrackingConsent(value); });
}

void KiteManagerImpl::addTechnicalEvents(const std::set<std::string>& names) {
  namedCall(*_state, [&](KiteState& state) { state.trackingConsent._addTechnicalEvents(names); });
}

void KiteManagerImpl::addProfilingOnlyEvents(const std::set<std::string>& names) {
  namedCall(*_state,
            [&](KiteState& state) { state.trackingConsent._addProfilingOnlyEvents(names); });
}

}  // namespace kite
