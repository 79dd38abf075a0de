#include <Kite/KiteDependencies.h>

#include <utility>

namespace kite {
namespace {

Kitbag chosenKitbag(const Platform& platform, const std::optional<Kitbag>& given) {
  return given ? *given : platform.kitbag();
}

bool isTestBuild(const Kitbag& kitbag) {
  return kitbag.distributionChannel != DistributionChannel::appStore;
}

/// What the three ways to a bundle have in common. Copies, so that `given` may be read on.
template <class Given>
FromIDProvider common(const Given& given, std::shared_ptr<Usher::UsherManager> idProvider) {
  return {.installedBeforeKite = given.installedBeforeKite,
          .idProvider = std::move(idProvider),
          .kitbag = std::nullopt,
          .endpoints = given.endpoints,
          .sessionListener = given.sessionListener,
          .backgroundChecker = given.backgroundChecker,
          .backgroundTaskScheduler = given.backgroundTaskScheduler,
          .lumoID = given.lumoID,
          .wicketKey = given.wicketKey,
          .whisker = given.whisker,
          .storefrontProvider = given.storefrontProvider,
          .syncOnSessionEnd = given.syncOnSessionEnd};
}

std::shared_ptr<Usher::UsherManager> startedIDProvider(const Platform& platform,
                                                       const Kitbag& kitbag,
                                                       const KiteDependencies& bundle,
                                                       const Usher::CustomIdentifiers& customIDs) {
  auto manager = platform.usherManager();
  manager->start({.kitbag = kitbag,
                  .kvstorage = bundle.kvStorage,
                  .secretsStorage = bundle.secretsStorage,
                  .idfaProvider = platform.advertisingIdentifier,
                  .identifierForVendorProvider = bundle.device,
                  .fileManager = bundle.fileManager,
                  .customIdentifiers = customIDs,
                  .notBackuppableIdFolderProvider = platform.notBackuppableIdFolder});
  return manager;
}

}  // namespace

KiteDependencies::KiteDependencies(const Platform& platform, FromIDProvider given)
    : KiteDependencies(platform, chosenKitbag(platform, given.kitbag), given, nullptr) {}

KiteDependencies::KiteDependencies(const Platform& platform, FromCustomIDs given)
    : KiteDependencies(platform, platform.kitbag(), common(given, nullptr), &given.customIDs) {}

KiteDependencies::KiteDependencies(const Platform& platform, FromKitbag given)
    : KiteDependencies(platform, given.kitbag, common(given, given.idProvider), nullptr) {}

KiteDependencies::KiteDependencies(const Platform& platform, const Kitbag& kitbag,
                                   FromIDProvider given, const Usher::CustomIdentifiers* customIDs)
    : kvStorage(platform.kvStorage()),
      secretsStorage(platform.secretsStorage(kitbag)),
      urlSession(platform.urlSession()),
      baseURL(isTestBuild(kitbag) ? given.endpoints.staging : given.endpoints.production) {
  notificationCenter = platform.notificationCenter();
  fileManager = platform.fileManager();
  locale = platform.locale();
  device = platform.device();
  timeZone = platform.timeZone();
  isTestEnvironment = isTestBuild(kitbag);
  currentAppVersion = kitbag.appVersion.value_or("");
  bundleVersion = kitbag.bundleVersion.value_or("");
  lumoID = std::move(given.lumoID);
  wicketKey = std::move(given.wicketKey);
  kiteVersion = "iOS-4.0.0";
  installedBeforeKite = given.installedBeforeKite;
  idProvider = customIDs ? startedIDProvider(platform, kitbag, *this, *customIDs)
                         : std::move(given.idProvider);
  attributionClient = platform.attributionClient();
  backgroundTaskScheduler = std::move(given.backgroundTaskScheduler);
  scheduler = platform.scheduler();
  timeProvider = platform.timeProvider();
  syncQueue = platform.queue("kite.sync");
  eventStorageQueue = platform.queue("kite.storage");
  backgroundChecker = std::move(given.backgroundChecker);
  uuidProvider = platform.randomUUID;
  sessionListener = std::move(given.sessionListener);
  whisker = std::move(given.whisker);
  storefrontProvider = std::move(given.storefrontProvider);
  syncOnSessionEnd = given.syncOnSessionEnd;
  libraryShortVersion = platform.libraryShortVersion;
}

}  // namespace kite
