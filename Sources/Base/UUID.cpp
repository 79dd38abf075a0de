#include "Base/UUIDText.h"

#include <algorithm>

namespace kite {
namespace {

constexpr bool isHyphenAt(std::size_t position) {
  return position == 8 || position == 13 || position == 18 || position == 23;
}

constexpr auto hexPairs = [] {
  constexpr std::string_view digits = "0123456789ABCDEF";
  std::array<std::array<char, 2>, 256> pairs{};
  for (std::size_t byte = 0; byte < pairs.size(); ++byte)
    pairs[byte] = {digits[byte / 16], digits[byte % 16]};
  return pairs;
}();

std::optional<int> hexDigit(char character) {
  if (character >= '0' && character <= '9') return character - '0';
  if (character >= 'A' && character <= 'F') return character - 'A' + 10;
  if (character >= 'a' && character <= 'f') return character - 'a' + 10;
  return std::nullopt;
}

}  // namespace

std::optional<UUID> UUID::parse(std::string_view text) {
  if (text.size() != UUIDText::length) return std::nullopt;
  UUID uuid;
  std::size_t digits = 0;
  for (std::size_t position = 0; position < UUIDText::length; ++position) {
    if (isHyphenAt(position)) {
      if (text[position] != '-') return std::nullopt;
      continue;
    }
    const auto digit = hexDigit(text[position]);
    if (!digit) return std::nullopt;
    auto& byte = uuid.bytes[digits++ / 2];
    byte = static_cast<std::uint8_t>(byte << 4 | *digit);
  }
  return uuid;
}

UUIDText::UUIDText(const UUID& uuid) {
  char* place = _text.data();
  const std::uint8_t* byte = uuid.bytes.data();
  for (const int size : {4, 2, 2, 2, 6}) {
    if (place != _text.data()) *place++ = '-';
    for (int i = 0; i < size; ++i) place = std::ranges::copy(hexPairs[*byte++], place).out;
  }
}

std::string UUID::text() const { return std::string(UUIDText(*this).view()); }

const UUID& UUID::noop() {
  static const UUID uuid = *parse("123e4567-e89b-12d3-a456-426614174000");
  return uuid;
}

}  // namespace kite
