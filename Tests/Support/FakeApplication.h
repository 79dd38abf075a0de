#pragma once

#include <Kite/Platform/Application.h>

#include <cstddef>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

namespace kite::test {

/// An application whose state is set, and whose background tasks are counted, by a test.
class FakeApplication final : public Application {
 public:
  explicit FakeApplication(ApplicationState state = ApplicationState::active) : _state(state) {}

  ApplicationState applicationState() const override {
    const std::scoped_lock guard(_mutex);
    return _state;
  }
  void setState(ApplicationState state) {
    const std::scoped_lock guard(_mutex);
    _state = state;
  }

  UIBackgroundTaskIdentifier beginBackgroundTask(
      std::optional<std::function<void()>> expirationHandler) override {
    const std::scoped_lock guard(_mutex);
    _running.emplace(++_begun, std::move(expirationHandler));
    return _begun;
  }
  void endBackgroundTask(UIBackgroundTaskIdentifier identifier) override {
    const std::scoped_lock guard(_mutex);
    _ended.push_back(identifier);
    _running.erase(identifier);
  }

  /// Tells every running task that its time is up; a task runs on until it is ended.
  void expireBackgroundTasks() {
    for (const auto& [identifier, handler] : running())
      if (handler) (*handler)();
  }

  std::size_t begunTasks() const {
    const std::scoped_lock guard(_mutex);
    return _begun;
  }
  /// The identifiers given to `endBackgroundTask`, in order, invalid ones and repetitions included.
  std::vector<UIBackgroundTaskIdentifier> endedTasks() const {
    const std::scoped_lock guard(_mutex);
    return _ended;
  }
  std::size_t runningTasks() const { return running().size(); }

 private:
  using Tasks = std::map<UIBackgroundTaskIdentifier, std::optional<std::function<void()>>>;

  Tasks running() const {
    const std::scoped_lock guard(_mutex);
    return _running;
  }

  mutable std::mutex _mutex;
  ApplicationState _state;
  UIBackgroundTaskIdentifier _begun = UIBackgroundTaskInvalid;
  std::vector<UIBackgroundTaskIdentifier> _ended;
  Tasks _running;
};

}  // namespace kite::test
