#pragma once

#include <functional>
#include <memory>
#include <string_view>

namespace kite {

inline constexpr std::string_view UIApplicationWillEnterForegroundNotification =
    "UIApplicationWillEnterForegroundNotification";
inline constexpr std::string_view UIApplicationDidEnterBackgroundNotification =
    "UIApplicationDidEnterBackgroundNotification";

/// Passes the application's notifications on to whoever observes them. Any thread may call it.
class NotificationCenter {
 public:
  /// Stands for one registered observer.
  class Observation {
   public:
    virtual ~Observation() = default;
  };

  virtual ~NotificationCenter() = default;

  /// `block` runs on the thread that posts, once per notification of that name, until the observer
  /// is removed.
  virtual std::shared_ptr<Observation> addObserver(std::string_view name,
                                                   std::function<void()> block) = 0;
  virtual void removeObserver(const std::shared_ptr<Observation>& observation) = 0;

  /// Runs the blocks of all observers of `name`, on this thread.
  virtual void post(std::string_view name) = 0;
};

}  // namespace kite
