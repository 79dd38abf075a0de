#pragma once

#include <mutex>
#include <utility>

namespace kite {

/// A value that only the holder of its lock can reach. A leaf lock: never held while calling out.
template <class T>
class Guarded {
 public:
  Guarded() = default;
  explicit Guarded(T value) : _value(std::move(value)) {}

  template <class Body>
  decltype(auto) with(Body body) {
    const std::scoped_lock guard(_mutex);
    return body(_value);
  }
  template <class Body>
  decltype(auto) with(Body body) const {
    const std::scoped_lock guard(_mutex);
    return body(_value);
  }
  T copy() const {
    const std::scoped_lock guard(_mutex);
    return _value;
  }
  /// Leaves a value that was never set. Needs no memory, so that destructors may call it.
  T take() {
    const std::scoped_lock guard(_mutex);
    return std::exchange(_value, T{});
  }
  void set(T value) {
    const std::scoped_lock guard(_mutex);
    std::swap(_value, value);  // the old value dies with the argument, after the lock is released
  }

 private:
  mutable std::mutex _mutex;
  T _value{};
};

}  // namespace kite
