#pragma once

#include <deque>
#include <functional>
#include <mutex>
#include <utility>

namespace kite::Toolkits {

/// Bodies that other threads hand over to the main loop.
///
/// Closed, it drops what it holds and what still comes: whoever waits for a body sees that, and
/// runs it in place instead of waiting for a loop that has ended.
class LoopBodies {
 public:
  /// `wake` has the loop call `run` soon. It is called under a lock, and never after `close`.
  explicit LoopBodies(std::function<void()> wake) : _wake(std::move(wake)) {}

  /// Any thread.
  void post(std::function<void()> body) {
    const std::scoped_lock guard(_mutex);
    if (_isClosed) return;
    _bodies.push_back(std::move(body));
    _wake();
  }
  /// Main thread.
  void run() {
    for (const auto& body : take()) body();
  }
  void close() {
    const auto dropped = [this] {
      const std::scoped_lock guard(_mutex);
      _isClosed = true;
      return std::exchange(_bodies, {});
    }();
  }

 private:
  std::deque<std::function<void()>> take() {
    const std::scoped_lock guard(_mutex);
    return std::exchange(_bodies, {});
  }

  const std::function<void()> _wake;
  std::mutex _mutex;
  std::deque<std::function<void()>> _bodies;
  bool _isClosed = false;
};

}  // namespace kite::Toolkits
