#include <Kite/Linux/LinuxPlatform.h>

#include "Base/Guarded.h"

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

namespace kite::Linux {
namespace {

using ExpirationHandler = std::function<void()>;

/// The handler of one background task, until it has been called or the task has ended.
///
/// It is locked while the handler runs, so that who ends the task meanwhile waits for that; the
/// lock is re-entrant, since most handlers end their task themselves.
class Expiration {
 public:
  explicit Expiration(std::optional<ExpirationHandler> handler) : _handler(std::move(handler)) {}

  void expire() {
    const std::scoped_lock guard(_mutex);
    if (const auto handler = std::exchange(_handler, std::nullopt)) (*handler)();
  }
  void cancel() {
    const std::scoped_lock guard(_mutex);
    _handler.reset();
  }

 private:
  std::recursive_mutex _mutex;
  std::optional<ExpirationHandler> _handler;
};

// The state changes before the notification, so that its handlers find the application where it is
// going.
class HostApplicationImpl final : public HostApplication {
 public:
  HostApplicationImpl(std::shared_ptr<NotificationCenter> center, ApplicationState initialState)
      : _center(std::move(center)), _state(initialState) {}

  ApplicationState applicationState() const override { return _state; }

  UIBackgroundTaskIdentifier beginBackgroundTask(
      std::optional<ExpirationHandler> expirationHandler) override {
    const auto task = std::make_shared<Expiration>(std::move(expirationHandler));
    const auto identifier = ++_lastTask;
    _tasks.with([&](Tasks& tasks) { tasks.emplace(identifier, task); });
    return identifier;
  }
  void endBackgroundTask(UIBackgroundTaskIdentifier identifier) override {
    const auto ended = _tasks.with([&](Tasks& tasks) { return tasks.extract(identifier); });
    if (ended) ended.mapped()->cancel();
  }

  void willEnterForeground() override {
    _state = ApplicationState::active;
    _center->post(UIApplicationWillEnterForegroundNotification);
  }
  void didEnterBackground() override {
    _state = ApplicationState::background;
    _center->post(UIApplicationDidEnterBackgroundNotification);
  }
  void expireBackgroundTasks() override {
    for (const auto& [identifier, task] : _tasks.copy()) task->expire();
  }

 private:
  using Tasks = std::map<UIBackgroundTaskIdentifier, std::shared_ptr<Expiration>>;

  const std::shared_ptr<NotificationCenter> _center;
  std::atomic<ApplicationState> _state;
  std::atomic<UIBackgroundTaskIdentifier> _lastTask = UIBackgroundTaskInvalid;
  Guarded<Tasks> _tasks;
};

}  // namespace

std::shared_ptr<HostApplication> hostApplication(std::shared_ptr<NotificationCenter> center,
                                                 ApplicationState initialState) {
  return std::make_shared<HostApplicationImpl>(std::move(center), initialState);
}

}  // namespace kite::Linux
