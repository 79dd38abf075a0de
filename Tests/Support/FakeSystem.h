#pragma once

#include <Kite/Platform/System.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kite::test {

/// A machine whose wall clock is set by the test, whose UUIDs count up, and whose console is a
/// list.
class FakeSystem {
 public:
  explicit FakeSystem(Date now = {1'700'000'000}) : _state(std::make_shared<State>()) {
    setNow(now);
  }

  System system() const {
    return {
        .now = [state = _state] { return state->readClock(); },
        .randomUUID = [state = _state] { return uuid(state->nextNumber()); },
        .print = [state = _state](std::string_view line) { state->print(line); },
    };
  }

  Date now() const { return _state->readClock(); }
  void setNow(Date now) {
    const std::scoped_lock guard(_state->mutex);
    _state->now = now;
  }

  /// The UUID that is drawn as the `number`th, from 1: its last digits are the number.
  static UUID uuid(std::uint32_t number) {
    UUID result;
    result.bytes[6] = 0x40;
    result.bytes[8] = 0x80;
    for (unsigned place = 0; place < 4; ++place)
      result.bytes[15 - place] = static_cast<std::uint8_t>(number >> (8 * place));
    return result;
  }
  /// How many UUIDs have been drawn.
  std::uint32_t drawnUUIDs() const {
    const std::scoped_lock guard(_state->mutex);
    return _state->drawnUUIDs;
  }

  std::vector<std::string> lines() const {
    const std::scoped_lock guard(_state->mutex);
    return _state->lines;
  }
  void clearLines() {
    const std::scoped_lock guard(_state->mutex);
    _state->lines.clear();
  }

 private:
  struct State {
    Date readClock() {
      const std::scoped_lock guard(mutex);
      return now;
    }
    std::uint32_t nextNumber() {
      const std::scoped_lock guard(mutex);
      return ++drawnUUIDs;
    }
    void print(std::string_view line) {
      const std::scoped_lock guard(mutex);
      lines.emplace_back(line);
    }

    std::mutex mutex;
    Date now;
    std::uint32_t drawnUUIDs = 0;
    std::vector<std::string> lines;
  };

  std::shared_ptr<State> _state;
};

}  // namespace kite::test
