#include "Base/RandomUUIDs.h"

#include <bit>
#include <cstddef>
#include <cstring>

namespace kite {

UUID RandomUUIDs::next() {
  UUID uuid;
  for (std::size_t half = 0; half < 2; ++half) {
    std::uint64_t bits = draw();
    if constexpr (std::endian::native == std::endian::big) bits = __builtin_bswap64(bits);
    std::memcpy(&uuid.bytes[half * sizeof bits], &bits, sizeof bits);
  }
  uuid.bytes[6] = static_cast<std::uint8_t>((uuid.bytes[6] & 0x0F) | 0x40);  // version 4
  uuid.bytes[8] = static_cast<std::uint8_t>((uuid.bytes[8] & 0x3F) | 0x80);  // variant of RFC 9562
  return uuid;
}

std::uint64_t RandomUUIDs::draw() {
  const std::uint64_t result = std::rotl(_state[0] + _state[3], 23) + _state[0];
  const std::uint64_t shifted = _state[1] << 17;
  _state[2] ^= _state[0];
  _state[3] ^= _state[1];
  _state[1] ^= _state[2];
  _state[0] ^= _state[3];
  _state[2] ^= shifted;
  _state[3] = std::rotl(_state[3], 45);
  return result;
}

}  // namespace kite
