#include "Facade/MissingPart.h"

#include <utility>

namespace kite {

// `device->identifierForVendor` may be missing: not every platform has one.
const char* missingPart(const KiteDependencies& bundle) {
  const auto& listener = bundle.sessionListener;
  const Device* const device = bundle.device.get();
  const std::pair<const char*, bool> parts[] = {
      {"kvStorage", bundle.kvStorage != nullptr},
      {"secretsStorage", bundle.secretsStorage != nullptr},
      {"urlSession", bundle.urlSession != nullptr},
      {"idProvider", bundle.idProvider != nullptr},
      {"notificationCenter", bundle.notificationCenter != nullptr},
      {"fileManager.urlsForDirectory", bundle.fileManager.urlsForDirectory != nullptr},
      {"fileManager.attributesOfItem", bundle.fileManager.attributesOfItem != nullptr},
      {"device", device != nullptr},
      {"device.machine", device != nullptr && device->machine != nullptr},
      {"timeZone.secondsFromUTC", bundle.timeZone.secondsFromUTC != nullptr},
      {"timeZone.isDaylightSavingTime", bundle.timeZone.isDaylightSavingTime != nullptr},
      {"attributionClient.requestAttributionDetails",
       bundle.attributionClient.requestAttributionDetails != nullptr},
      {"backgroundTaskScheduler.beginBackgroundTask",
       bundle.backgroundTaskScheduler.beginBackgroundTask != nullptr},
      {"backgroundTaskScheduler.endBackgroundTask",
       bundle.backgroundTaskScheduler.endBackgroundTask != nullptr},
      {"scheduler", bundle.scheduler != nullptr},
      {"timeProvider.now", bundle.timeProvider.now != nullptr},
      {"syncQueue", bundle.syncQueue != nullptr},
      {"eventStorageQueue", bundle.eventStorageQueue != nullptr},
      {"backgroundChecker.isInBackground", bundle.backgroundChecker.isInBackground != nullptr},
      {"uuidProvider", bundle.uuidProvider != nullptr},
      {"sessionListener.onSessionStart", listener.onSessionStart != nullptr},
      {"sessionListener.onSessionEnd", listener.onSessionEnd != nullptr},
      {"sessionListener.detachSessionStart", listener.detachSessionStart != nullptr},
      {"sessionListener.detachSessionEnd", listener.detachSessionEnd != nullptr},
      {"whisker", bundle.whisker != nullptr},
      {"storefrontProvider", bundle.storefrontProvider != nullptr},
  };
  for (const auto& [name, isThere] : parts)
    if (!isThere) return name;
  return nullptr;
}

}  // namespace kite
