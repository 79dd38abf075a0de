#include "Base/UUIDText.h"

#include <algorithm>

namespace kite {
namespace {

// Where the two digits of each byte stand; a hyphen is wherever there is a gap.
constexpr std::array<std::uint8_t, 16> bytePositions = {0,  2,  4,  6,  9,  11, 14, 16,
                                                        19, 21, 24, 26, 28, 30, 32, 34};
constexpr std::array<std::uint8_t, 4> hyphenPositions = {8, 13, 18, 23};

constexpr auto hexPairs = [] {
  constexpr std::string_view digits = "0123456789ABCDEF";
  std::array<std::array<char, 2>, 256> pairs{};
  for (std::size_t byte = 0; byte < pairs.size(); ++byte)
    pairs[byte] = {digits[byte / 16], digits[byte % 16]};
  return pairs;
}();

/// By character; what is no digit is negative.
constexpr auto digitValues = [] {
  std::array<std::int8_t, 256> values{};
  values.fill(-1);
  for (const std::string_view digits : {"0123456789ABCDEF", "0123456789abcdef"}) {
    for (std::size_t value = 0; value < digits.size(); ++value)
      values[static_cast<unsigned char>(digits[value])] = static_cast<std::int8_t>(value);
  }
  return values;
}();

}  // namespace

std::optional<UUID> UUID::parse(std::string_view text) {
  if (text.size() != UUIDText::length) return std::nullopt;
  const auto valueAt = [&](std::size_t position) {
    return int{digitValues[static_cast<unsigned char>(text[position])]};
  };
  UUID uuid;
  int all = 0;  // negative as soon as one is
  for (std::size_t i = 0; i < bytePositions.size(); ++i) {
    const int high = valueAt(bytePositions[i]), low = valueAt(bytePositions[i] + 1U);
    all |= high | low;
    uuid.bytes[i] = static_cast<std::uint8_t>(high * 16 + low);
  }
  const bool isHyphenated = std::ranges::all_of(
      hyphenPositions, [&](std::uint8_t position) { return text[position] == '-'; });
  return all >= 0 && isHyphenated ? std::optional(uuid) : std::nullopt;
}

UUIDText::UUIDText(const UUID& uuid) {
  for (const auto position : hyphenPositions) _text[position] = '-';
  for (std::size_t i = 0; i < bytePositions.size(); ++i)
    std::ranges::copy(hexPairs[uuid.bytes[i]], _text.begin() + bytePositions[i]);
}

std::string UUID::text() const { return std::string(UUIDText(*this).view()); }

const UUID& UUID::noop() {
  static const UUID uuid = *parse("123e4567-e89b-12d3-a456-426614174000");
  return uuid;
}

}  // namespace kite
