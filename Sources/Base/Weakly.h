#pragma once

#include <memory>
#include <utility>

namespace kite {

/// A closure that runs `body(*object, …)` while the object lives and does nothing afterwards.
template <class T, class Body>
auto weakly(std::weak_ptr<T> object, Body body) {
  return [object = std::move(object), body = std::move(body)](auto&&... arguments) mutable {
    if (const auto self = object.lock())
      body(*self, std::forward<decltype(arguments)>(arguments)...);
  };
}

}  // namespace kite
