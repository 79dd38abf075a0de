#include <Kite/Kite.h>
#include <Kite/Linux/LinuxPlatform.h>

#include <cstdio>

// A host that knows nothing but the installed package.
int main(int argc, char** argv) {
  if (argc != 2) return 2;
  const auto listener = kite::SessionListener::manual();
  kite::KiteManagerImpl kite;
  kite.start(kite::KiteDependencies(
      kite::Linux::platform({.applicationName = "consumer",
                             .kitbag = {.appVersion = "1.0", .bundleVersion = "1"},
                             .dataFolder = std::string(argv[1]) + "/app",
                             .secretsFolder = std::string(argv[1]) + "/secrets"}),
      kite::FromCustomIDs{
          .installedBeforeKite = false,
          .customIDs = {},
          .endpoints = {.production = *kite::URL::parse("https://127.0.0.1:9/v4/events"),
                        .staging = *kite::URL::parse("https://127.0.0.1:9/v4/events")},
          .sessionListener = listener.witness,
          .backgroundChecker = kite::BackgroundChecker::noBackground(),
          .backgroundTaskScheduler = kite::BackgroundTaskScheduler::noBackground(),
          .lumoID = "consumer",
          .wicketKey = "key",
          .whisker = kite::Linux::jsonLinesWhisker(),
          .storefrontProvider = [] { return std::nullopt; },
          .syncOnSessionEnd = false}));
  kite.addUserInfo("color", "green");
  const auto info = kite.userInfoKiteValue();
  const auto color = info.at("color")->as<std::string>();
  std::printf("%s\n", color ? color->c_str() : "none");
  return color == "green" ? 0 : 1;
}
