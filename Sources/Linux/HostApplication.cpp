#include <Kite/Linux/LinuxPlatform.h>

#include <atomic>
#include <utility>

namespace kite::Linux {
namespace {

// The state changes before the notification, so that its handlers find the application where it is
// going.
class HostApplicationImpl final : public HostApplication {
 public:
  HostApplicationImpl(std::shared_ptr<NotificationCenter> center, ApplicationState initialState)
      : _center(std::move(center)), _state(initialState) {}

  ApplicationState applicationState() const override { return _state; }

  // A process in the background is never suspended here, so that no task runs out of time.
  UIBackgroundTaskIdentifier beginBackgroundTask(std::optional<std::function<void()>>) override {
    return ++_lastTask;
  }
  void endBackgroundTask(UIBackgroundTaskIdentifier) override {}

  void willEnterForeground() override {
    _state = ApplicationState::active;
    _center->post(UIApplicationWillEnterForegroundNotification);
  }
  void didEnterBackground() override {
    _state = ApplicationState::background;
    _center->post(UIApplicationDidEnterBackgroundNotification);
  }

 private:
  const std::shared_ptr<NotificationCenter> _center;
  std::atomic<ApplicationState> _state;
  std::atomic<UIBackgroundTaskIdentifier> _lastTask = UIBackgroundTaskInvalid;
};

}  // namespace

std::shared_ptr<HostApplication> hostApplication(std::shared_ptr<NotificationCenter> center,
                                                 ApplicationState initialState) {
  return std::make_shared<HostApplicationImpl>(std::move(center), initialState);
}

}  // namespace kite::Linux
