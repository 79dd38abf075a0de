#include <Kite/Base/UUID.h>

namespace kite {
namespace {

constexpr std::size_t textLength = 36;

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
  if (text.size() != textLength) return std::nullopt;
  UUID uuid;
  std::size_t digits = 0;
  for (std::size_t position = 0; position < textLength; ++position) {
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

std::string UUID::text() const {
  constexpr char digits[] = "0123456789ABCDEF";
  std::string text(textLength, '-');
  std::size_t position = 0;
  for (const std::uint8_t byte : bytes) {
    if (isHyphenAt(position)) ++position;
    text[position++] = digits[byte >> 4];
    text[position++] = digits[byte & 0xF];
  }
  return text;
}

const UUID& UUID::noop() {
  static const UUID uuid = *parse("123e4567-e89b-12d3-a456-426614174000");
  return uuid;
}

}  // namespace kite
