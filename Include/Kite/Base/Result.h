#pragma once

#include <utility>
#include <variant>

namespace kite {

/// A failure on its way into a `Result`: `return Failure{error};`.
template <class E>
struct Failure {
  E error;
};
template <class E>
Failure(E) -> Failure<E>;

/// A value, or the reason why there is none. Shaped like `std::expected`, which may replace it one
/// day; but that the value of a temporary is moved out, so that a loop may go over it.
template <class T, class E>
class [[nodiscard]] Result {
 public:
  Result(T value) : _state(std::in_place_index<0>, std::move(value)) {}
  Result(Failure<E> failure) : _state(std::in_place_index<1>, std::move(failure.error)) {}

  explicit operator bool() const { return _state.index() == 0; }
  const T& operator*() const& { return *std::get_if<0>(&_state); }
  T operator*() && { return std::move(*std::get_if<0>(&_state)); }
  const T* operator->() const { return std::get_if<0>(&_state); }
  const E& error() const { return *std::get_if<1>(&_state); }

 private:
  std::variant<T, E> _state;
};

}  // namespace kite
