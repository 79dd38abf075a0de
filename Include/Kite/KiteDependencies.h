#pragma once

#include <Kite/AttributionClient.h>
#include <Kite/BackgroundChecker.h>
#include <Kite/BackgroundTaskScheduler.h>
#include <Kite/Base/Export.h>
#include <Kite/KiteEndpoints.h>
#include <Kite/Platform/Platform.h>
#include <Kite/SessionListener.h>
#include <Kite/Storefront.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kite {

using StorefrontProvider = std::function<std::optional<Storefront>()>;

/// With an identity provider that the host has started; without a `kitbag` the platform's is taken.
struct FromIDProvider {
  bool installedBeforeKite;
  std::shared_ptr<Usher::UsherManager> idProvider;
  std::optional<Kitbag> kitbag;
  KiteEndpoints endpoints;
  SessionListener sessionListener;
  BackgroundChecker backgroundChecker;
  BackgroundTaskScheduler backgroundTaskScheduler;
  std::string lumoID;
  std::string wicketKey;
  std::shared_ptr<Whisker> whisker;
  StorefrontProvider storefrontProvider;
  bool syncOnSessionEnd;
};

/// With an identity provider made and started here, that knows these identifiers beside its own.
struct FromCustomIDs {
  bool installedBeforeKite;
  Usher::CustomIdentifiers customIDs;
  KiteEndpoints endpoints;
  SessionListener sessionListener;
  BackgroundChecker backgroundChecker;
  BackgroundTaskScheduler backgroundTaskScheduler;
  std::string lumoID;
  std::string wicketKey;
  std::shared_ptr<Whisker> whisker;
  StorefrontProvider storefrontProvider;
  bool syncOnSessionEnd;
};

/// With the host's own `kitbag` and an identity provider that the host has started.
struct FromKitbag {
  Kitbag kitbag;
  bool installedBeforeKite;
  std::shared_ptr<Usher::UsherManager> idProvider;
  KiteEndpoints endpoints;
  SessionListener sessionListener;
  BackgroundChecker backgroundChecker;
  BackgroundTaskScheduler backgroundTaskScheduler;
  std::string lumoID;
  std::string wicketKey;
  std::shared_ptr<Whisker> whisker;
  StorefrontProvider storefrontProvider;
  bool syncOnSessionEnd;
};

/// All that the library needs to start, made once and handed to `KiteManager::start`.
///
/// The host names a handful of values in one of the three records; the rest comes from the
/// platform. Functions and objects in it are called from threads of the library's; they must be
/// safe for that and must not throw.
class KITE_EXPORT KiteDependencies {
 public:
  KiteDependencies(const Platform& platform, FromIDProvider given);
  KiteDependencies(const Platform& platform, FromCustomIDs given);
  KiteDependencies(const Platform& platform, FromKitbag given);

  std::shared_ptr<Larder::KVStorage> kvStorage;
  std::shared_ptr<Larder::SecretsStorage> secretsStorage;
  std::shared_ptr<URLSession> urlSession;
  bool isTestEnvironment =
      false;  ///< a build that is not for the app store; it talks to the staging endpoint
  std::string kiteVersion;
  std::shared_ptr<Usher::UsherManager> idProvider;
  std::string currentAppVersion;
  std::shared_ptr<NotificationCenter> notificationCenter;
  FileManager fileManager;
  Locale locale;
  std::string bundleVersion;
  std::shared_ptr<const Device> device;
  TimeZone timeZone;
  bool installedBeforeKite = false;  ///< the application existed before it linked the library
  std::string wicketKey;             ///< signs every request; never written anywhere
  URL baseURL;
  std::vector<URL>
      secondaryURLs;   ///< tried in turn when `baseURL` fails; empty unless the host fills it
  std::string lumoID;  ///< the application's name at the collection service
  AttributionClient attributionClient;
  BackgroundTaskScheduler backgroundTaskScheduler;
  std::shared_ptr<Tempra::Scheduler> scheduler;
  Tempra::TimeProvider timeProvider;
  std::shared_ptr<Tempra::Queue> syncQueue;
  std::shared_ptr<Tempra::Queue> eventStorageQueue;
  BackgroundChecker backgroundChecker;
  std::function<UUID()> uuidProvider;
  SessionListener sessionListener;
  std::shared_ptr<Whisker> whisker;
  StorefrontProvider storefrontProvider;
  bool syncOnSessionEnd = false;  ///< go on uploading after a session has ended
  bool savesLedger = false;       ///< counts of events are saved with them, for later runs

  std::optional<std::string> libraryShortVersion;  ///< becomes "kite_lib_version" of the user info

 private:
  KiteDependencies(const Platform& platform, const Kitbag& kitbag, FromIDProvider given,
                   const Usher::CustomIdentifiers* customIDs);
};

}  // namespace kite
