#include <Kite/KiteManagerImpl.h>

#include "Base/CurrentOperation.h"
#include "Base/Guarded.h"
#include "Facade/KiteState.h"
#include "Facade/MissingPart.h"
#include "Install/InstallManagerImpl.h"
#include "JSON/LastingParser.h"
#include "JSON/UTF8.h"
#include "Profile/UserInfoKeys.h"
#include "Queue/EventManagerImpl.h"
#include "Queue/EventStorageImpl.h"
#include "Sessions/SessionManagerImpl.h"
#include "Upload/KiteAPIManagerImpl.h"
#include "Upload/SynchronizationManagerImpl.h"

#include <utility>
#include <vector>

namespace kite {

KiteState::KiteState(System givenSystem)
    : system(std::move(givenSystem)),
      home(system.forkCount),
      apiManager(std::make_shared<KiteAPIManagerImpl>(system)),
      eventStorage(std::make_shared<EventStorageImpl>()),
      eventManager(std::make_shared<EventManagerImpl>()),
      installManager(std::make_shared<InstallManagerImpl>(system)),
      sessionManager(std::make_shared<SessionManagerImpl>(system)),
      synchronizationManager(std::make_shared<SynchronizationManagerImpl>(system)),
      trackingConsent(TrackingConsentManager::live()) {}

void KiteState::start(KiteDependencies bundle) {
  if (const char* const part = missingPart(bundle))
    fatalError("KiteDependencies." + std::string(part) + " is missing", {"Kite/Kite", "start", 0});
  useLastingParser();
  dependencies.set(std::move(bundle));
  _currentProcessId.set(dependencies->uuidProvider());
  enabled = true;
  startAPIManager();
  startEventStorage();
  startEventManager();
  configureUserInfo();
  startInstallManager();
  startSessionManager();
  startSynchronizationManager();
  trackingConsent._start(dependencies->kvStorage);
}

void KiteState::startAPIManager() {
  const auto bundle = dependencies.get();
  apiManager->start({.baseURL = bundle->baseURL,
                     .secondaryURLs = bundle->secondaryURLs,
                     .urlSession = KiteURLSession::live(bundle->urlSession),
                     .kvStorage = bundle->kvStorage,
                     .isTestEnvironment = bundle->isTestEnvironment,
                     .lumoID = bundle->lumoID,
                     .kiteVersion = bundle->kiteVersion,
                     .wicketKey = bundle->wicketKey,
                     .clientId = bundle->idProvider->userDefaultsId().value,
                     .whisker = bundle->whisker->scoped({"kite"})});
}

void KiteState::startEventStorage() {
  const auto bundle = dependencies.get();
  eventStorage->start({.backgroundChecker = bundle->backgroundChecker,
                       .scheduler = bundle->scheduler,
                       .eventStorageQueue = bundle->eventStorageQueue,
                       .kvStorage = bundle->kvStorage,
                       .sessionListener = bundle->sessionListener});
}

void KiteState::startEventManager() {
  const auto bundle = dependencies.get();
  eventManager->start({.storage = eventStorage,
                       .idProvider = bundle->idProvider,
                       .secretsStorage = bundle->secretsStorage,
                       .lumoID = bundle->lumoID,
                       .storefrontProvider = bundle->storefrontProvider,
                       .now = system.now,
                       .uuidGenerator = system.randomUUID});
}

void KiteState::startInstallManager() {
  const auto bundle = dependencies.get();
  installManager->start({.kvStorage = bundle->kvStorage,
                         .secretsStorage = bundle->secretsStorage,
                         .idProvider = bundle->idProvider,
                         .currentAppVersion = bundle->currentAppVersion,
                         .currentBundleVersion = bundle->bundleVersion,
                         .eventManager = eventManager,
                         .installedBeforeKite = bundle->installedBeforeKite,
                         .fileManager = bundle->fileManager,
                         .now = system.now});
}

void KiteState::startSessionManager() {
  const auto bundle = dependencies.get();
  sessionManager->start({.backgroundChecker = bundle->backgroundChecker,
                         .eventManager = eventManager,
                         .isProduction = !bundle->isTestEnvironment,
                         .kvStorage = bundle->kvStorage,
                         .scheduler = bundle->scheduler,
                         .timeProvider = bundle->timeProvider,
                         .uuidProvider = bundle->uuidProvider,
                         .sessionListener = bundle->sessionListener});
}

void KiteState::startSynchronizationManager() {
  const auto bundle = dependencies.get();
  synchronizationManager->start({.storage = eventStorage,
                                 .sessionListener = bundle->sessionListener,
                                 .backgroundTaskScheduler = bundle->backgroundTaskScheduler,
                                 .apiManager = apiManager,
                                 .scheduler = bundle->scheduler,
                                 .syncQueue = bundle->syncQueue,
                                 .syncOnSessionEnd = bundle->syncOnSessionEnd});
}

UserAction::Payload KiteState::prepareUserActionData(UserActionArguments arguments) {
  const bool inBackground = arguments.appIsInBackground;
  const auto session =
      inBackground ? sessionManager->lastForegroundSession() : sessionManager->currentSession();
  UserAction::Payload payload{.id = system.randomUUID(),
                              .timestamp = system.now().secondsSince1970,
                              .actionKind = arguments.name,
                              .actionInfo = std::move(arguments.data),
                              .secondsFromSessionStart = std::nullopt,
                              .sessionId = std::nullopt,
                              .processId = arguments.processId,
                              .lastForegroundSessionId = std::nullopt,
                              .isBackgroundEvent = inBackground};
  if (inBackground) {
    payload.lastForegroundSessionId = session->id;
  } else {
    payload.secondsFromSessionStart = arguments.now - session->startDate;
    payload.sessionId = session->id;
  }
  return payload;
}

void KiteState::updateSessionData(const KiteData& data) {
  const auto session = sessionManager->currentSession();
  if (!enabled) return;
  sessionManager->updateSessionData(session->sessionData.merged(toJSONObject(data)));
}

namespace {

/// A host may fill a place by hand, and leave a part of it out.
std::string orEmpty(const char* part) { return part != nullptr ? part : ""; }

}  // namespace

void KiteState::trackDebugEvent(DebugEventArguments arguments) {
  eventManager->trackDebugEvent({.id = system.randomUUID(),
                                 .timestamp = system.now().secondsSince1970,
                                 .severity = arguments.severity,
                                 .message = std::move(arguments.message),
                                 .category = std::move(arguments.category),
                                 .domain = std::move(arguments.domain),
                                 .code = std::move(arguments.code),
                                 .type = std::move(arguments.type),
                                 .description = std::move(arguments.description),
                                 .info = toJSONObject(arguments.info),
                                 .file = orEmpty(arguments.where.file),
                                 .function = orEmpty(arguments.where.function),
                                 .line = arguments.where.line});
}

namespace {

/// Where leak checkers can see it.
void keepForEver(std::shared_ptr<KiteState> state) {
  static auto& kept = *new Guarded<std::vector<std::shared_ptr<KiteState>>>;
  kept.with([&](auto& states) { states.push_back(std::move(state)); });
}

}  // namespace

KiteManagerImpl::KiteManagerImpl(System system)
    : _state(std::make_shared<KiteState>(std::move(system))) {}

// A forked child leaves everything to its parent, whose threads may have held any lock.
KiteManagerImpl::~KiteManagerImpl() {
  if (!_state->home.isOriginalProcess()) keepForEver(std::move(_state));
}

KiteData KiteManagerImpl::sessionDataKiteValue() {
  const CurrentOperation operation;
  if (!_state->home.isOriginalProcess()) return {};
  return toKiteValue(_state->sessionManager->currentSession()->sessionData);
}

KiteData KiteManagerImpl::userInfoKiteValue() {
  const CurrentOperation operation;
  if (!_state->home.isOriginalProcess()) return {};
  return toKiteValue(_state->userInfo());
}

std::optional<double> KiteManagerImpl::firstInstallTimestamp() {
  const CurrentOperation operation;
  if (!_state->home.isOriginalProcess()) return {};
  const auto fromSecrets = _state->installManager->ssInfo().firstInstallTimestamp;
  return fromSecrets ? fromSecrets : _state->installManager->kvInfo().firstInstallTimestamp;
}

std::string KiteManagerImpl::keychainId() {
  const CurrentOperation operation;
  if (!_state->home.isOriginalProcess()) return {};
  return _state->dependencies->idProvider->keychainId().value;
}

std::string KiteManagerImpl::userDefaultsId() {
  const CurrentOperation operation;
  if (!_state->home.isOriginalProcess()) return {};
  return _state->dependencies->idProvider->userDefaultsId().value;
}

UUID KiteManagerImpl::currentSessionId() {
  const CurrentOperation operation;
  if (!_state->home.isOriginalProcess()) return {};
  return _state->sessionManager->currentSession()->id;
}

UUID KiteManagerImpl::currentProcessId() {
  const CurrentOperation operation;
  if (!_state->home.isOriginalProcess()) return {};
  return _state->_currentProcessId.get();
}

bool KiteManagerImpl::installedBeforeKite() {
  const CurrentOperation operation;
  if (!_state->home.isOriginalProcess()) return false;
  return _state->dependencies->installedBeforeKite;
}

void KiteManagerImpl::start(KiteDependencies dependencies) {
  const CurrentOperation operation;
  if (!_state->home.isOriginalProcess()) return;
  _state->start(std::move(dependencies));
}

void KiteManagerImpl::addSessionData(std::string_view key, const KiteValue& value) {
  const CurrentOperation operation;
  if (!_state->home.isOriginalProcess()) return;
  value.requireJSON();
  if (!_state->enabled) return;
  _state->sessionManager->addSessionData(value.toJSONValue(), repairedUTF8(key));
}

void KiteManagerImpl::updateSessionData(KiteData data) {
  const CurrentOperation operation;
  if (!_state->home.isOriginalProcess()) return;
  data.requireJSON();
  _state->updateSessionData(data);
}

void KiteManagerImpl::addUserInfo(std::string_view key, const KiteValue& value) {
  const CurrentOperation operation;
  if (!_state->home.isOriginalProcess()) return;
  value.requireJSON();
  _state->dependencies.get();
  if (!_state->enabled) return;
  _state->updateUserInfo({{repairedUTF8(key), value.toJSONValue()}});
}

void KiteManagerImpl::updateUserInfo(KiteData data) {
  const CurrentOperation operation;
  if (!_state->home.isOriginalProcess()) return;
  data.requireJSON();
  _state->updateUserInfo(toJSONObject(data));
}

void KiteManagerImpl::trackUserAction(std::string_view name, KiteData data) {
  if (!_state->home.isOriginalProcess()) return;
  data.requireJSON();
  const Date now = _state->system.now();
  if (!_state->enabled || !_state->trackingConsent._canTrackUserAction(name)) return;
  const auto bundle = _state->dependencies.get();  // the managers read theirs within
  const bool inBackground = bundle->backgroundChecker.isInBackground();
  _state->eventManager->trackUserAction(
      _state->prepareUserActionData({.name = name,
                                     .data = std::move(data),
                                     .now = now,
                                     .processId = _state->_currentProcessId.get(),
                                     .appIsInBackground = inBackground}));
}

// Custom events are rows of the foreground: in the background the call is dropped without a trace.
void KiteManagerImpl::trackCustomEvent(std::string_view table, KiteData data) {
  if (!_state->home.isOriginalProcess()) return;
  data.requireJSON();
  if (!_state->enabled || _state->dependencies->backgroundChecker.isInBackground()) return;
  _state->eventManager->trackCustomEvent(repairedUTF8(table),
                                         {.data = toJSONObject(data),
                                          .id = _state->system.randomUUID(),
                                          .timestamp = _state->system.now().secondsSince1970});
}

void KiteManagerImpl::trackLog(std::string_view name, Severity severity, KiteData data) {
  if (!_state->home.isOriginalProcess()) return;
  data.requireJSON();
  if (!_state->enabled) return;
  _state->trackDebugEvent({.severity = severity,
                           .message = std::string(name),
                           .category = "track_log_legacy",
                           .info = std::move(data),
                           .where = {facadeSourcePath, "trackLog(name:severity:data:)", 618}});
}

void KiteManagerImpl::trackDebugEvent(DebugEventArguments arguments) {
  if (!_state->home.isOriginalProcess()) return;
  arguments.info.requireJSON();
  if (_state->enabled) _state->trackDebugEvent(std::move(arguments));
}

void KiteManagerImpl::trackExperimentSegmentsReceived(
    const std::map<std::string, std::int64_t>& segments) {
  const CurrentOperation operation;
  if (!_state->home.isOriginalProcess()) return;
  JSONValue::Object::Entries entries;
  for (const auto& [name, segment] : segments) entries.emplace_back(repairedUTF8(name), segment);
  _state->updateUserInfo({{std::string(UserInfoKeys::experimentUserInfoKey),
                           JSONValue::Object::fromUnsorted(std::move(entries))}});
  _state->eventManager->trackExperimentSegmentsReceived();
}

void KiteManagerImpl::monetizationFieldsDidChange(KiteData newValue) {
  const CurrentOperation operation;
  if (!_state->home.isOriginalProcess()) return;
  newValue.requireJSON();
  _state->monetizationFieldsDidChange(toJSONObject(newValue));
}

void KiteManagerImpl::isBaselineUserDidChange(bool newValue) {
  const CurrentOperation operation;
  if (!_state->home.isOriginalProcess()) return;
  _state->boolUserInfoDidChange(UserInfoKeys::isBaselineKey, newValue);
}

void KiteManagerImpl::isFreeUserDidChange(bool newValue) {
  const CurrentOperation operation;
  if (!_state->home.isOriginalProcess()) return;
  _state->boolUserInfoDidChange(UserInfoKeys::isFreeKey, newValue);
}

void KiteManagerImpl::setAnalyticsTrackingConsent(bool value) {
  const CurrentOperation operation;
  if (!_state->home.isOriginalProcess()) return;
  _state->trackingConsent._setAnalyticsTrackingConsent(value);
}

void KiteManagerImpl::setProfilingTrackingConsent(bool value) {
  const CurrentOperation operation;
  if (!_state->home.isOriginalProcess()) return;
  _state->trackingConsent._setProfilingTrackingConsent(value);
}

void KiteManagerImpl::addTechnicalEvents(const std::set<std::string>& names) {
  const CurrentOperation operation;
  if (!_state->home.isOriginalProcess()) return;
  _state->trackingConsent._addTechnicalEvents(names);
}

void KiteManagerImpl::addProfilingOnlyEvents(const std::set<std::string>& names) {
  const CurrentOperation operation;
  if (!_state->home.isOriginalProcess()) return;
  _state->trackingConsent._addProfilingOnlyEvents(names);
}

}  // namespace kite
