#include <Kite/BackgroundTaskScheduler.h>

#include <utility>

namespace kite {

BackgroundTaskScheduler BackgroundTaskScheduler::uiApplication(
    std::shared_ptr<Application> application) {
  return {.beginBackgroundTask =
              [application](std::optional<ExpirationHandler> handler) {
                return application->beginBackgroundTask(std::move(handler));
              },
          .endBackgroundTask =
              [application](UIBackgroundTaskIdentifier identifier) {
                application->endBackgroundTask(identifier);
              }};
}

BackgroundTaskScheduler BackgroundTaskScheduler::noBackground() {
  return {.beginBackgroundTask =
              [](const std::optional<ExpirationHandler>&) { return UIBackgroundTaskInvalid; },
          .endBackgroundTask = [](UIBackgroundTaskIdentifier) {}};
}

}  // namespace kite
