#pragma once

#include <Kite/Platform/MainThread.h>

#include "Support/Queues.h"

#include <functional>
#include <memory>
#include <utility>

namespace kite::test {

/// Runs what waits on a queue whenever somebody waits on it. Real time does not pass.
class PumpingMainThread final : public MainThread {
 public:
  explicit PumpingMainThread(std::shared_ptr<ManualQueue> queue) : _queue(std::move(queue)) {}

  void runSynchronously(const std::function<void()>& body) override { body(); }
  void waitFor(const std::function<void(std::function<void()>)>& begin, Tempra::Duration) override {
    begin([] {});
    _queue->drain();
  }

 private:
  std::shared_ptr<ManualQueue> _queue;
};

}  // namespace kite::test
