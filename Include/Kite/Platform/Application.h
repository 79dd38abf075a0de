#pragma once

#include <cstdint>
#include <functional>
#include <optional>

namespace kite {

using UIBackgroundTaskIdentifier = std::uint64_t;
inline constexpr UIBackgroundTaskIdentifier UIBackgroundTaskInvalid = 0;

enum class ApplicationState { active = 0, inactive = 1, background = 2 };

/// The application that the library lives in.
class Application {
 public:
  virtual ~Application() = default;

  /// Asked on the main thread.
  virtual ApplicationState applicationState() const = 0;

  /// Asks the platform not to suspend the process until the task ends; `expirationHandler` runs
  /// when time is up.
  virtual UIBackgroundTaskIdentifier beginBackgroundTask(
      std::optional<std::function<void()>> expirationHandler) = 0;
  virtual void endBackgroundTask(UIBackgroundTaskIdentifier identifier) = 0;
};

}  // namespace kite
