#pragma once

#include <Kite/Base/Export.h>
#include <Kite/Platform/Application.h>

#include <functional>
#include <memory>
#include <optional>

namespace kite {

/// Begins and ends background tasks, so that work begun before the application leaves the
/// foreground may finish.
struct KITE_EXPORT BackgroundTaskScheduler {
  using ExpirationHandler = std::function<void()>;

  std::function<UIBackgroundTaskIdentifier(std::optional<ExpirationHandler>)> beginBackgroundTask;
  std::function<void(UIBackgroundTaskIdentifier)> endBackgroundTask;

  static BackgroundTaskScheduler uiApplication(std::shared_ptr<Application> application);
  /// Begins nothing: answers `UIBackgroundTaskInvalid` and never calls the handler.
  static BackgroundTaskScheduler noBackground();
};

}  // namespace kite
