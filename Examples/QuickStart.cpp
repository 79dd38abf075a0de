#include <Kite/Kite.h>
#include <Kite/Linux/LinuxPlatform.h>

int main() {
  kite::KiteManagerImpl kite;
  kite.start(kite::KiteDependencies(
      kite::Linux::platform(
          {.applicationName = "trail-maps", .kitbag = {.appVersion = "1.0", .bundleVersion = "1"}}),
      kite::FromCustomIDs{.installedBeforeKite = false,
                          .customIDs = {},
                          .endpoints = kite::KiteEndpoints::defaultEndpoints(),
                          .sessionListener = kite::SessionListener::manual().witness,
                          .backgroundChecker = kite::BackgroundChecker::noBackground(),
                          .backgroundTaskScheduler = kite::BackgroundTaskScheduler::noBackground(),
                          .lumoID = "trail-maps",
                          .wicketKey = "the key that signs requests",
                          .whisker = kite::Linux::jsonLinesWhisker(),
                          .storefrontProvider = [] { return std::nullopt; },
                          .syncOnSessionEnd = true}));
  kite.trackUserAction("checkout", {{"items", 3}, {"gift", true}, {"price", 12.5}});
}
