#pragma once

#include <utility>

namespace kite {

/// The operation that the host called on this thread, for as long as it runs: a fatal error names
/// it, whichever part of the library raised it.
///
/// Tracking calls do not register: before `start` they do nothing, and later they must be quick.
class CurrentOperation {
 public:
  explicit CurrentOperation(const char* name = __builtin_FUNCTION()) noexcept
      : _outer(std::exchange(current, name)) {}
  ~CurrentOperation() { current = _outer; }
  CurrentOperation(const CurrentOperation&) = delete;
  CurrentOperation& operator=(const CurrentOperation&) = delete;

  /// Null outside of every operation.
  static const char* name() noexcept { return current; }

 private:
  static constinit thread_local const char* current;
  const char* _outer;
};

}  // namespace kite
