#pragma once

#include <Kite/Platform/Tempra.h>

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

  /// Runs `begin`, which is given the function that ends the wait, and returns when that was
  /// called, by any thread, or when the time is up. On the main thread, bodies that others want to
  /// run there run meanwhile.
  virtual void waitFor(const std::function<void(std::function<void()> end)>& begin,
                       Tempra::Duration atMost) = 0;
};

/// The value of `body()`, run on the main thread.
template <class Body>
std::invoke_result_t<Body> mainThread(MainThread& thread, Body body) {
  std::optional<std::invoke_result_t<Body>> value;
  thread.runSynchronously([&] { value.emplace(body()); });
  return *std::move(value);
}

}  // namespace kite
