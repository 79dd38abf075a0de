#pragma once

#include <Kite/Base/UUID.h>

#include <array>
#include <cstdint>

namespace kite {

/// Version-4 UUIDs out of a xoshiro256++ generator: unique, not secret.
///
/// Whoever makes one seeds it with 256 bits of true randomness, not all zero.
class RandomUUIDs {
 public:
  using Seed = std::array<std::uint64_t, 4>;

  explicit RandomUUIDs(Seed seed) : _state(seed) {}

  UUID next();

 private:
  std::uint64_t draw();
  Seed _state;
};

}  // namespace kite
