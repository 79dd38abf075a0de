#include "Report/PrintedText.h"

#include "Common/LowerCase.h"
#include "JSON/UTF8.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>

namespace kite::tool {
namespace {

constexpr std::size_t mostLettersPerColumn = 4;  // those of no width are letters as well

struct LetterRange {
  char32_t first;
  char32_t last;
};

/// What steers a terminal, has no shape of its own, or may not stand in XML (the last range).
constexpr std::array controls{
    LetterRange{0x00, 0x1F},        LetterRange{0x7F, 0x9F},       LetterRange{0xAD, 0xAD},
    LetterRange{0x61C, 0x61C},      LetterRange{0x200B, 0x200B},   LetterRange{0x200E, 0x200F},
    LetterRange{0x2028, 0x202E},    LetterRange{0x2060, 0x206F},   LetterRange{0xFEFF, 0xFEFF},
    LetterRange{0xFFF0, 0xFFFB},    LetterRange{0xE0000, 0xE0FFF}, LetterRange{0xE000, 0xF8FF},
    LetterRange{0xF0000, 0x10FFFF}, LetterRange{0xFFFE, 0xFFFF}};

constexpr std::array widthless{
    LetterRange{0x300, 0x36F},   LetterRange{0x483, 0x489},   LetterRange{0x591, 0x5BD},
    LetterRange{0x610, 0x61A},   LetterRange{0x64B, 0x65F},   LetterRange{0x1AB0, 0x1AFF},
    LetterRange{0x1DC0, 0x1DFF}, LetterRange{0x200C, 0x200D}, LetterRange{0x20D0, 0x20FF},
    LetterRange{0xFE00, 0xFE0F}, LetterRange{0xFE20, 0xFE2F}};

constexpr std::array wide{
    LetterRange{0x1100, 0x115F},   LetterRange{0x2E80, 0x303E},   LetterRange{0x3041, 0xA4CF},
    LetterRange{0xA960, 0xA97F},   LetterRange{0xAC00, 0xD7A3},   LetterRange{0xF900, 0xFAFF},
    LetterRange{0xFE30, 0xFE6F},   LetterRange{0xFF00, 0xFF60},   LetterRange{0xFFE0, 0xFFE6},
    LetterRange{0x1F300, 0x1F64F}, LetterRange{0x1F680, 0x1F6FF}, LetterRange{0x1F900, 0x1FAFF},
    LetterRange{0x20000, 0x3FFFD}};

template <std::size_t Count>
bool isIn(char32_t letter, const std::array<LetterRange, Count>& ranges) {
  return std::ranges::any_of(ranges, [letter](const LetterRange& range) {
    return letter >= range.first && letter <= range.last;
  });
}

int columnsOfLetter(char32_t letter) {
  if (isIn(letter, widthless)) return 0;
  return isIn(letter, wide) ? 2 : 1;
}

/// Takes the first letter off a text that is UTF-8.
struct Letter {
  explicit Letter(std::string_view text) {
    const auto lead = static_cast<unsigned char>(text.front());
    const std::size_t size = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    bytes = text.substr(0, size);
    code = size == 1 ? lead : lead & (0xFFU >> (size + 1));
    for (const char next : bytes.substr(1)) {
      code = (code << 6) | (static_cast<unsigned char>(next) & 0x3FU);
    }
  }

  std::string_view bytes;
  char32_t code;
};

/// The letter as it is shown.
Letter shown(const Letter& letter, Letters letters) {
  const bool isASCII = letters == Letters::ascii;
  const bool canBe = !isIn(letter.code, controls) && (!isASCII || letter.code < 0x80);
  return canBe ? letter : Letter(isASCII ? "?" : "\uFFFD");
}

std::string repeated(std::string_view text, int count) {
  std::string all;
  for (int i = 0; i < count; ++i) all += text;
  return all;
}

}  // namespace

Letters lettersOfLocale() {
  for (const char* name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
    const char* value = std::getenv(name);
    if (!value || *value == '\0') continue;
    const std::string locale = lowerCased(value);
    const bool isUTF8 = locale.find("utf-8") != locale.npos || locale.find("utf8") != locale.npos;
    return isUTF8 ? Letters::unicode : Letters::ascii;
  }
  return Letters::ascii;
}

int columnsOf(std::string_view text) {
  int columns = 0;
  while (!text.empty()) {
    const Letter letter(text);
    columns += columnsOfLetter(letter.code);
    text.remove_prefix(letter.bytes.size());
  }
  return columns;
}

std::string printable(std::string_view text, Letters letters, int mostColumns) {
  const std::string_view ellipsis = letters == Letters::ascii ? "..." : "…";
  const int room = mostColumns - columnsOf(ellipsis);
  const std::string repaired = repairedUTF8(text);
  std::string all;
  std::string cut;  // with room for the ellipsis
  int columns = 0;
  std::size_t count = 0;
  for (std::string_view rest = repaired; !rest.empty();) {
    const Letter letter(rest);
    rest.remove_prefix(letter.bytes.size());
    const Letter printed = shown(letter, letters);
    columns += columnsOfLetter(printed.code);
    const bool isTooLong = ++count > mostLettersPerColumn * static_cast<std::size_t>(mostColumns);
    if (columns > mostColumns || isTooLong) return cut.append(ellipsis);
    all += printed.bytes;
    if (columns <= room) cut = all;
  }
  return all;
}

std::string bar(double share, Letters letters, int columns) {
  if (!(share > 0)) return "";
  const double length = std::min(share, 1.0) * columns;
  if (letters == Letters::ascii) {
    return repeated("#", std::max(1, static_cast<int>(std::lround(length))));
  }
  constexpr std::array<std::string_view, 8> parts{"", "▏", "▎", "▍", "▌", "▋", "▊", "▉"};
  const int eighths = std::max(1, static_cast<int>(std::lround(length * 8)));
  return repeated("█", eighths / 8) + std::string(parts[static_cast<std::size_t>(eighths % 8)]);
}

}  // namespace kite::tool
