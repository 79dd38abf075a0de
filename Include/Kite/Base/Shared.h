#pragma once

#include <memory>
#include <utility>

namespace kite {

/// An immutable value kept on the heap: copies share it, equality looks inside. Never empty.
template <class T>
class Shared {
 public:
  Shared(T value) : _value(std::make_shared<const T>(std::move(value))) {}
  explicit Shared(std::shared_ptr<const T> value) : _value(std::move(value)) {}
  Shared(const Shared&) = default;  // and no move: a moved-from value would be empty
  Shared& operator=(const Shared&) = default;
  ~Shared() = default;

  const T& operator*() const { return *_value; }
  const T* operator->() const { return _value.get(); }

  /// Whether both are one and the same object, not merely equal.
  bool isSame(const Shared& other) const { return _value == other._value; }

  friend bool operator==(const Shared& a, const Shared& b) {
    return a._value == b._value || *a == *b;
  }

 private:
  std::shared_ptr<const T> _value;
};

}  // namespace kite
