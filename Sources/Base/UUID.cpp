#include "Base/UUIDText.h"

namespace kite {
namespace {

constexpr bool isHyphenAt(std::size_t position) {
  return position == 8 || position == 13 || position == 18 || position == 23;
}

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
  constexpr char digits[] = "0123456789ABCDEF";
  char* place = _text.data();
  const char* const begin = place;
  for (const std::uint8_t byte : uuid.bytes) {
    if (isHyphenAt(static_cast<std::size_t>(place - begin))) *place++ = '-';
    *place++ = digits[byte >> 4];
    *place++ = digits[byte & 0xF];
  }
}

std::string UUID::text() const { return std::string(UUIDText(*this).view()); }

const UUID& UUID::noop() {
  static const UUID uuid = *parse("123e4567-e89b-12d3-a456-426614174000");
  return uuid;
}

}  // namespace kite
