#pragma once

#include <Kite/Platform/NotificationCenter.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <iterator>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kite::test {

/// A notification centre whose observers can be counted.
class FakeNotificationCenter final : public NotificationCenter {
 public:
  std::shared_ptr<Observation> addObserver(std::string_view name,
                                           std::function<void()> block) override {
    auto observer = std::make_shared<Observer>(std::string(name), std::move(block));
    const std::scoped_lock guard(_mutex);
    _observers.push_back(observer);
    return observer;
  }

  void removeObserver(const std::shared_ptr<Observation>& observation) override {
    const std::scoped_lock guard(_mutex);
    std::erase(_observers, observation);
  }

  void post(std::string_view name) override {
    for (const auto& observer : observersOf(name))
      if (isObserving(observer)) observer->block();
  }

  void enterForeground() { post(UIApplicationWillEnterForegroundNotification); }
  void enterBackground() { post(UIApplicationDidEnterBackgroundNotification); }

  std::size_t observers(std::string_view name) const { return observersOf(name).size(); }

 private:
  struct Observer final : Observation {
    Observer(std::string observedName, std::function<void()> body)
        : name(std::move(observedName)), block(std::move(body)) {}

    const std::string name;
    const std::function<void()> block;
  };

  std::vector<std::shared_ptr<Observer>> observersOf(std::string_view name) const {
    const std::scoped_lock guard(_mutex);
    std::vector<std::shared_ptr<Observer>> result;
    std::copy_if(_observers.begin(), _observers.end(), std::back_inserter(result),
                 [&](const auto& observer) { return observer->name == name; });
    return result;
  }
  bool isObserving(const std::shared_ptr<Observer>& observer) const {
    const std::scoped_lock guard(_mutex);
    return std::find(_observers.begin(), _observers.end(), observer) != _observers.end();
  }

  mutable std::mutex _mutex;
  std::vector<std::shared_ptr<Observer>> _observers;
};

}  // namespace kite::test
