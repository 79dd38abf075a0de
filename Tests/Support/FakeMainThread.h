#pragma once

#include <Kite/Platform/MainThread.h>

#include <atomic>
#include <functional>

namespace kite::test {

/// Runs bodies in place and tells whether it is doing so.
class FakeMainThread final : public MainThread {
 public:
  void runSynchronously(const std::function<void()>& body) override {
    ++_runs;
    _isRunning = true;
    body();
    _isRunning = false;
  }

  /// Real time does not pass: whoever does not end the wait before `begin` returns is too late.
  void waitFor(const std::function<void(std::function<void()>)>& begin, Tempra::Duration) override {
    begin([] {});
  }

  bool isRunning() const { return _isRunning; }
  int runs() const { return _runs; }

 private:
  std::atomic<bool> _isRunning = false;
  std::atomic<int> _runs = 0;
};

}  // namespace kite::test
