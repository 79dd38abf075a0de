#pragma once

#include <functional>
#include <optional>
#include <type_traits>

namespace kite {

/// The thread that runs the host's main loop.
class MainThread {
 public:
  virtual ~MainThread() = default;

  /// Runs `body` on the main thread and returns when it has run; directly when the caller is that
  /// thread, or when the host has no main loop.
  virtual void runSynchronously(const std::function<void()>& body) = 0;
};

/// The value of `body()`, run on the main thread.
template <class Body>
std::invoke_result_t<Body> mainThread(MainThread& thread, Body body) {
  std::optional<std::invoke_result_t<Body>> value;
  thread.runSynchronously([&] { value.emplace(body()); });
  return *std::move(value);
}

}  // namespace kite
