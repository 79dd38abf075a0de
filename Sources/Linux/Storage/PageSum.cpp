#include "Linux/Storage/PageSum.h"

#include <libdeflate.h>

#include <algorithm>
#include <array>

namespace kite::Linux {

namespace {

using Sum = std::array<char, pageSumSize>;

Sum littleEndian(std::uint32_t number) {
  Sum bytes;
  for (char& byte : bytes) {
    byte = static_cast<char>(number & 0xFF);
    number >>= 8;
  }
  return bytes;
}

Sum sumOf(std::span<const char, pageSize> page, std::uint32_t number) {
  const auto place = littleEndian(number);
  const auto crc = libdeflate_crc32(0, page.data(), usablePageSize);
  return littleEndian(libdeflate_crc32(crc, place.data(), place.size()));
}

}  // namespace

void writeSum(Page page, std::uint32_t number) {
  std::ranges::copy(sumOf(page, number), page.last<pageSumSize>().begin());
}

bool isSound(std::span<const char, pageSize> page, std::uint32_t number) {
  return std::ranges::equal(page.last<pageSumSize>(), sumOf(page, number)) ||
         std::ranges::all_of(page, [](char byte) { return byte == 0; });
}

}  // namespace kite::Linux
