#include <Kite/Linux/LinuxPlatform.h>

#include <algorithm>
#include <atomic>
#include <iterator>
#include <mutex>
#include <utility>

namespace kite::Linux {
namespace {

class InProcessNotificationCenter final : public NotificationCenter {
 public:
  std::shared_ptr<Observation> addObserver(std::string_view name,
                                           std::function<void()> block) override {
    auto observer = std::make_shared<Observer>(std::string(name), std::move(block));
    const std::scoped_lock guard(_mutex);
    _observers.push_back(observer);
    return observer;
  }

  void removeObserver(const std::shared_ptr<Observation>& observation) override {
    std::shared_ptr<Observer> removed;  // its block dies after the lock is released
    const std::scoped_lock guard(_mutex);
    const auto found = std::find(_observers.begin(), _observers.end(), observation);
    if (found == _observers.end()) return;
    removed = std::move(*found);
    removed->isRemoved = true;
    _observers.erase(found);
  }

  void post(std::string_view name) override {
    for (const auto& observer : observersOf(name))
      if (!observer->isRemoved) observer->block();
  }

 private:
  struct Observer final : Observation {
    Observer(std::string observedName, std::function<void()> body)
        : name(std::move(observedName)), block(std::move(body)) {}

    const std::string name;
    const std::function<void()> block;
    std::atomic<bool> isRemoved = false;
  };
  using Observers = std::vector<std::shared_ptr<Observer>>;

  Observers observersOf(std::string_view name) const {
    const std::scoped_lock guard(_mutex);
    Observers result;
    std::copy_if(_observers.begin(), _observers.end(), std::back_inserter(result),
                 [name](const auto& observer) { return observer->name == name; });
    return result;
  }

  mutable std::mutex _mutex;
  Observers _observers;
};

}  // namespace

std::shared_ptr<NotificationCenter> notificationCenter() {
  return std::make_shared<InProcessNotificationCenter>();
}

}  // namespace kite::Linux
