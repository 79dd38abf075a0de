#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace kite {

/// A number that many threads count up. Each has a cache line that few share, so that they do not
/// wait for one another.
class SharedCount {
 public:
  /// Gives how often this thread, and those that share its cache line, have counted.
  std::uint64_t add() { return _parts[place()].count.fetch_add(1, std::memory_order_relaxed) + 1; }
  std::uint64_t total() const {
    std::uint64_t total = 0;
    for (const auto& part : _parts) total += part.count.load(std::memory_order_relaxed);
    return total;
  }

 private:
  struct alignas(64) Part {
    std::atomic<std::uint64_t> count{0};
  };

  static std::size_t place() {
    static constinit std::atomic<std::size_t> next{0};
    static constinit thread_local std::size_t mine = 0;  // one above the place
    if (mine == 0) mine = next++ % std::tuple_size_v<decltype(_parts)> + 1;
    return mine - 1;
  }

  std::array<Part, 8> _parts{};
};

}  // namespace kite
