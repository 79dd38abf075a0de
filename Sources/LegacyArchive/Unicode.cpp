#include "LegacyArchive/Unicode.h"

namespace kite::PropertyList {

namespace {

constexpr std::uint32_t replacement = 0xFFFD;

bool isHighSurrogate(std::uint32_t unit) { return unit >= 0xD800 && unit < 0xDC00; }
bool isLowSurrogate(std::uint32_t unit) { return unit >= 0xDC00 && unit < 0xE000; }

std::uint32_t byteAt(std::string_view bytes, std::size_t place) {
  return static_cast<unsigned char>(bytes[place]);
}
std::uint32_t unitAt(std::string_view bytes, std::size_t place) {
  return byteAt(bytes, place) << 8 | byteAt(bytes, place + 1);
}

}  // namespace

void appendUTF8(std::string& text, std::uint32_t codePoint) {
  const auto append = [&](std::uint32_t byte) { text += static_cast<char>(byte); };
  const auto continuation = [&](int shift) { append(0x80 | (codePoint >> shift & 0x3F)); };
  if (codePoint > 0x10FFFF || (codePoint >= 0xD800 && codePoint < 0xE000)) codePoint = replacement;
  if (codePoint < 0x80) {
    append(codePoint);
  } else if (codePoint < 0x800) {
    append(0xC0 | codePoint >> 6);
    continuation(0);
  } else if (codePoint < 0x10000) {
    append(0xE0 | codePoint >> 12);
    continuation(6);
    continuation(0);
  } else {
    append(0xF0 | codePoint >> 18);
    continuation(12);
    continuation(6);
    continuation(0);
  }
}

std::string fromUTF16(std::string_view bytes) {
  std::string text;
  for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
    const auto unit = unitAt(bytes, i);
    if (isHighSurrogate(unit) && i + 3 < bytes.size() && isLowSurrogate(unitAt(bytes, i + 2))) {
      i += 2;
      appendUTF8(text, 0x10000 + ((unit - 0xD800) << 10) + (unitAt(bytes, i) - 0xDC00));
    } else {
      appendUTF8(text, unit);
    }
  }
  return text;
}

}  // namespace kite::PropertyList
