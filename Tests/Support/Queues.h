#pragma once

#include <Kite/Platform/Tempra.h>

#include "Base/CatchingBadAlloc.h"

#include <cstddef>
#include <deque>
#include <mutex>
#include <utility>

namespace kite::test {

/// As often as it takes.
inline void runToItsEnd(const Tempra::Block& block) {
  while (!catchingBadAlloc(block)) {
  }
}

/// Runs blocks in place, but one at a time, as a serial queue does: a block submitted by a running
/// one waits until that one is done.
class ImmediateQueue final : public Tempra::Queue {
 public:
  void run(Tempra::Block block) override {
    {
      const std::scoped_lock guard(_mutex);
      _waiting.push_back(std::move(block));
      if (std::exchange(_isRunning, true)) return;
    }
    try {
      while (const auto next = takeNext()) runToItsEnd(next);
    } catch (...) {
      abandon();
      throw;
    }
  }

 private:
  // A caught fatal error leaves a block by throwing; the queue is then as good as new.
  void abandon() {
    std::deque<Tempra::Block> dropped;
    const std::scoped_lock guard(_mutex);
    _isRunning = false;
    dropped.swap(_waiting);
  }

  Tempra::Block takeNext() {
    const std::scoped_lock guard(_mutex);
    if (_waiting.empty()) {
      _isRunning = false;
      return {};
    }
    auto next = std::move(_waiting.front());
    _waiting.pop_front();
    return next;
  }

  std::mutex _mutex;
  bool _isRunning = false;
  std::deque<Tempra::Block> _waiting;
};

/// Collects blocks until a test runs them.
class ManualQueue final : public Tempra::Queue {
 public:
  void run(Tempra::Block block) override {
    const std::scoped_lock guard(_mutex);
    _waiting.push_back(std::move(block));
  }

  /// Runs the oldest block; false when there is none.
  bool runOne() {
    const auto block = takeNext();
    if (block) runToItsEnd(block);
    return block != nullptr;
  }
  /// Runs blocks until none is left, those that they submit included.
  void drain() {
    while (runOne()) {
    }
  }
  std::size_t size() const {
    const std::scoped_lock guard(_mutex);
    return _waiting.size();
  }

 private:
  Tempra::Block takeNext() {
    const std::scoped_lock guard(_mutex);
    if (_waiting.empty()) return {};
    auto next = std::move(_waiting.front());
    _waiting.pop_front();
    return next;
  }

  mutable std::mutex _mutex;
  std::deque<Tempra::Block> _waiting;
};

/// Wakes nobody for a block that may wait.
class PatientQueue final : public Tempra::Queue {
 public:
  void run(Tempra::Block block) override {
    _blocks.run(std::move(block));
    ++wakeUps;
  }
  void runSoon(Tempra::Block block) override { _blocks.run(std::move(block)); }
  void runWaiting() override { _blocks.drain(); }

  int wakeUps = 0;

 private:
  ManualQueue _blocks;
};

}  // namespace kite::test
