#pragma once

#include <Kite/Base/FatalError.h>

#include "Base/Guarded.h"

#include <optional>
#include <utility>

namespace kite {

/// A value that comes later than its holder; reading it too early stops the process. Any thread.
template <class T>
class LateInit {
 public:
  LateInit(const char* message, SourceLocation where) : _message(message), _where(where) {}

  void set(T value) { _value.set(std::move(value)); }
  T get() const {
    auto value = _value.copy();
    if (!value) fatalError(_message, _where);
    return *std::move(value);
  }

 private:
  const char* _message;
  SourceLocation _where;
  Guarded<std::optional<T>> _value;
};

}  // namespace kite
