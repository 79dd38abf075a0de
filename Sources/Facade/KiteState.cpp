#include "Facade/KiteState.h"

#include "Facade/MissingPart.h"
#include "Install/InstallManagerImpl.h"
#include "JSON/LastingParser.h"
#include "Queue/EventManagerImpl.h"
#include "Queue/EventStorageImpl.h"
#include "Sessions/SessionManagerImpl.h"
#include "Upload/KiteAPIManagerImpl.h"
#include "Upload/SynchronizationManagerImpl.h"

#include <utility>

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
                       .sessionListener = bundle->sessionListener,
                       .ledger = ledger,
                       .savesLedger = bundle->savesLedger});
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

}  // namespace kite
