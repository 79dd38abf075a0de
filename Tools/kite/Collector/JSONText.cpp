#include "Collector/JSONText.h"

#include <fmt/format.h>
#include <simdjson.h>

#include <array>
#include <charconv>

namespace kite::tool {
namespace {

bool isASCII(char byte) { return static_cast<unsigned char>(byte) < 0x80; }

void appendEscaped(std::string& out, char byte) {
  switch (byte) {
    case '"':
      out += "\\\"";
      return;
    case '\\':
      out += "\\\\";
      return;
    case '\n':
      out += "\\n";
      return;
    default:
      break;
  }
  if (static_cast<unsigned char>(byte) < 0x20) {
    out += fmt::format("\\u{:04x}", static_cast<unsigned>(byte));
  } else {
    out += byte;
  }
}

}  // namespace

std::string quotedJSON(std::string_view text) {
  const bool isUTF8 = simdjson::validate_utf8(text.data(), text.size());
  std::string out = "\"";
  for (const char byte : text) {
    if (isUTF8 || isASCII(byte)) {
      appendEscaped(out, byte);
    } else {
      out += "\xEF\xBF\xBD";
    }
  }
  return out += '"';
}

std::string realJSON(double number) {
  std::array<char, 32> buffer{};
  const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), number).ptr;
  std::string text(buffer.data(), end);
  return text.find_first_of(".e") == std::string::npos ? text + ".0" : text;
}

std::string clipped(std::string_view text, std::size_t limit) {
  if (text.size() <= limit) return std::string(text);
  while (limit > 0 && (static_cast<unsigned char>(text[limit]) & 0xC0) == 0x80) --limit;
  return std::string(text.substr(0, limit)) + "…";
}

}  // namespace kite::tool
