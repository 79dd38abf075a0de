#include "Values/JSONString.h"

#include "Values/JSONEncoder.h"
#include "Values/UTF8.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

namespace kite {
namespace {

/// What follows the backslash in place of a byte; zero for bytes that stand for themselves.
constexpr auto escapes = [] {
  std::array<char, 256> table{};
  for (std::size_t control = 0; control < 0x20; ++control) table[control] = 'u';
  table['"'] = '"';
  table['\\'] = '\\';
  table['\b'] = 'b';
  table['\f'] = 'f';
  table['\n'] = 'n';
  table['\r'] = 'r';
  table['\t'] = 't';
  return table;
}();

char escapeOf(char byte) { return escapes[static_cast<unsigned char>(byte)]; }

void appendEscape(std::string& out, char byte) {
  constexpr char digits[] = "0123456789abcdef";
  out.push_back('\\');
  out.push_back(escapeOf(byte));
  if (escapeOf(byte) != 'u') return;
  out.append("00");
  out.push_back(digits[byte >> 4]);
  out.push_back(digits[byte & 0xF]);
}

constexpr std::uint64_t eightTimes(unsigned char byte) { return 0x0101'0101'0101'0101U * byte; }

/// Whether eight bytes stand for themselves; each term sets the high bit of a byte that does not.
bool areClean(std::uint64_t bytes) {
  const auto hasZero = [](std::uint64_t word) { return (word - eightTimes(1)) & ~word; };
  const std::uint64_t isControl = (bytes - eightTimes(0x20)) & ~bytes;
  const std::uint64_t isQuote = hasZero(bytes ^ eightTimes('"'));
  const std::uint64_t isBackslash = hasZero(bytes ^ eightTimes('\\'));
  return ((isControl | isQuote | isBackslash) & eightTimes(0x80)) == 0;
}

bool isClean(std::string_view text) {
  std::uint64_t eight = eightTimes(' ');
  if (text.size() < sizeof eight) {
    text.copy(reinterpret_cast<char*>(&eight), text.size());
    return areClean(eight);
  }
  const char* const last = text.data() + text.size() - sizeof eight;
  for (const char* at = text.data(); at < last; at += sizeof eight) {
    std::memcpy(&eight, at, sizeof eight);
    if (!areClean(eight)) return false;
  }
  std::memcpy(&eight, last, sizeof eight);
  return areClean(eight);
}

void appendEscaped(std::string& out, std::string_view text) {
  while (true) {
    const auto special = std::ranges::find_if(text, escapeOf);
    const auto clean = static_cast<std::size_t>(special - text.begin());
    out.append(text.data(), clean);
    if (clean == text.size()) return;
    appendEscape(out, *special);
    text.remove_prefix(clean + 1);
  }
}

}  // namespace

void appendQuotedUTF8(std::string& out, std::string_view text) {
  out.push_back('"');
  if (isClean(text)) {
    out.append(text);
  } else {
    appendEscaped(out, text);
  }
  out.push_back('"');
}

void appendJSONString(std::string& out, std::string_view text) {
  appendQuotedUTF8(out, isUTF8(text) ? text : std::string_view(repairedUTF8(text)));
}

}  // namespace kite
