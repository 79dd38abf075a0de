#pragma once

#include <Kite/Base/FatalError.h>

#include "Base/Started.h"

#include <utility>

namespace kite {

/// A value that comes later than its holder; reading it too early stops the process. Any thread.
template <class T>
class LateInit {
 public:
  LateInit(const char* message, SourceLocation where) : _value(message, where) {}

  void set(T value) { _value.set(std::move(value)); }
  T get() const { return *_value.get(); }

 private:
  Started<T> _value;
};

}  // namespace kite
