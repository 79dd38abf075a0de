#pragma once

#include <Kite/Base/UUID.h>
#include <Kite/JSONValue.h>

#include <optional>

namespace kite {

/// The value, or a null that keeps its key in place.
template <class T>
JSONValue orNull(const std::optional<T>& value) {
  return value ? JSONValue(*value) : JSONValue();
}

inline JSONValue orNull(const std::optional<UUID>& value) {
  return value ? JSONValue(value->text()) : JSONValue();
}

}  // namespace kite
