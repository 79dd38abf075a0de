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
  /// when time is up, at most once. Any thread; no identifier is given twice.
  virtual UIBackgroundTaskIdentifier beginBackgroundTask(
      std::optional<std::function<void()>> expirationHandler) = 0;
  /// Once this has returned, the handler is not running, unless it is the caller, and will not run.
  /// Any thread; an identifier of no task is ignored.
  virtual void endBackgroundTask(UIBackgroundTaskIdentifier identifier) = 0;
};

}  // namespace kite
