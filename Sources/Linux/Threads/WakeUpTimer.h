#pragma once

#include <chrono>

namespace kite::Linux {

/// Wakes one of the threads that wait for it at the time that it is set to. Setting it wakes nobody
/// else and costs no thread anything, unlike a time limit that a waiting thread has to be told of.
/// Any thread.
class WakeUpTimer {
 public:
  using Time = std::chrono::steady_clock::time_point;
  static constexpr Time never = Time::max();

  WakeUpTimer();
  ~WakeUpTimer();
  WakeUpTimer(const WakeUpTimer&) = delete;
  WakeUpTimer& operator=(const WakeUpTimer&) = delete;

  /// Whether the system has given what it takes.
  bool isThere() const { return _events >= 0 && _timer >= 0; }

  /// Instead of the time that it was set to before. A time that has passed wakes at once.
  void set(Time time) const;
  /// False when the host has closed what does not belong to it.
  [[nodiscard]] bool await() const;

 private:
  int _timer;
  int _events;
};

}  // namespace kite::Linux
