#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>

namespace kite {

/// Copies the text and gives the end of the copy. Most texts here are short; where the compiler
/// optimizes for size, it makes `memcpy` of any length an instruction that is slow to begin.
inline char* copyText(char* place, std::string_view text) {
  constexpr std::size_t eight = 8;
  for (; text.size() >= eight; place += eight, text.remove_prefix(eight))
    std::memcpy(place, text.data(), eight);
  for (const char character : text) *place++ = character;
  return place;
}

}  // namespace kite
