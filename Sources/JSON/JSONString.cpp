#include "JSON/JSONString.h"

#include "JSON/JSONEncoder.h"
#include "JSON/UTF8.h"

#include <algorithm>
#include <array>
#include <cstddef>
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

/// What there is among the bytes of a text, taken together eight at a time.
class Survey {
 public:
  explicit Survey(std::string_view text) {
    if (text.size() < eight) {
      std::uint64_t few = eightTimes(' ');
      text.copy(reinterpret_cast<char*>(&few), text.size());
      add(few);
    } else {
      const char* const last = text.data() + text.size() - eight;
      for (const char* place = text.data(); place < last; place += eight) add(bytesAt(place));
      add(bytesAt(last));
    }
  }

  bool hasEscapes() const { return (_escaped & highBits) != 0; }
  bool isASCII() const { return (_all & highBits) == 0; }

 private:
  static constexpr std::size_t eight = sizeof(std::uint64_t);
  static constexpr std::uint64_t highBits = eightTimes(0x80);

  static std::uint64_t bytesAt(const char* place) {
    std::uint64_t bytes;
    std::memcpy(&bytes, place, eight);
    return bytes;
  }
  /// Each term sets the high bit of a byte that does not stand for itself.
  void add(std::uint64_t bytes) {
    const auto hasZero = [](std::uint64_t word) { return (word - eightTimes(1)) & ~word; };
    const std::uint64_t isControl = (bytes - eightTimes(0x20)) & ~bytes;
    const std::uint64_t isQuote = hasZero(bytes ^ eightTimes('"'));
    const std::uint64_t isBackslash = hasZero(bytes ^ eightTimes('\\'));
    _escaped |= isControl | isQuote | isBackslash;
    _all |= bytes;
  }

  std::uint64_t _escaped = 0;
  std::uint64_t _all = 0;
};

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

bool isPlainUTF8(std::string_view text) {
  const Survey survey(text);
  return !survey.hasEscapes() && (survey.isASCII() || isUTF8(text));
}

void appendQuotedUTF8(std::string& out, std::string_view text) {
  out.push_back('"');
  if (Survey(text).hasEscapes()) {
    appendEscaped(out, text);
  } else {
    out.append(text);
  }
  out.push_back('"');
}

void appendJSONString(std::string& out, std::string_view text) {
  const bool isKnown = Survey(text).isASCII() || isUTF8(text);
  isKnown ? appendQuotedUTF8(out, text) : appendQuotedUTF8(out, repairedUTF8(text));
}

}  // namespace kite
