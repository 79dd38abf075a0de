#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace kite::Linux {

/// The size of a store's pages: a few events to a page.
inline constexpr std::size_t pageSize = 8192;

/// What SQLite leaves alone at the end of each page, for its sum.
inline constexpr std::size_t pageSumSize = 4;
inline constexpr std::size_t usablePageSize = pageSize - pageSumSize;

/// A number as SQLite's files have it: big-endian.
inline std::uint32_t numberAt(std::string_view bytes, std::size_t place, std::size_t size = 4) {
  std::uint32_t number = 0;
  for (const char byte : bytes.substr(place, size))
    number = number << 8 | static_cast<unsigned char>(byte);
  return number;
}

}  // namespace kite::Linux
