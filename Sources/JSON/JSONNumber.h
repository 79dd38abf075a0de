#pragma once

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>

namespace kite {

/// The most characters that a number takes.
inline constexpr std::size_t longestJSONNumber = 32;

/// Writes the number where there is room for the longest; gives the end of its text.
inline char* writeJSONNumber(char* place, std::int64_t number) {
  return std::to_chars(place, place + longestJSONNumber, number).ptr;
}

/// The shortest digits that read back as the same number, with a fraction or an exponent. Null for
/// a number that is not finite.
inline char* writeJSONNumber(char* place, double number) {
  if (!std::isfinite(number)) return nullptr;
  char* end = std::to_chars(place, place + longestJSONNumber, number).ptr;
  const bool readsAsInteger = std::none_of(place, end, [](char c) { return c == '.' || c == 'e'; });
  if (!readsAsInteger) return end;
  *end++ = '.';
  *end++ = '0';
  return end;
}

}  // namespace kite
