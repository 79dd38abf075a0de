#pragma once

#include <algorithm>
#include <cstddef>

namespace kite::PropertyList {

/// How much a reader may still build. Objects that are referred to from many places are built once
/// for each place, so that a small document could otherwise ask for any amount of memory.
class Allowance {
 public:
  explicit Allowance(std::size_t documentSize)
      : _left(std::min(base + perByte * documentSize, limit)) {}

  /// Whether an object with so many bytes of content may be built.
  bool spend(std::size_t contentBytes = 0) {
    const auto cost = object + contentBytes;
    if (cost > _left) return false;
    _left -= cost;
    return true;
  }

 private:
  static constexpr std::size_t object = 96;  // a value, its node and its share of a container
  static constexpr std::size_t base = std::size_t{1} << 20;
  static constexpr std::size_t perByte = 64;
  static constexpr std::size_t limit = std::size_t{256} << 20;

  std::size_t _left;
};

}  // namespace kite::PropertyList
