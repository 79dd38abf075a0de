#include "JSON/UTF8.h"

#include <simdjson.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

namespace kite {
namespace {

constexpr std::string_view replacement = "\xEF\xBF\xBD";

/// Characters that begin with one range of bytes: how long they are, and what may come second.
struct LeadRange {
  std::uint8_t first, last;
  std::uint8_t length;
  std::uint8_t secondFirst, secondLast;
};
constexpr std::array leadRanges{
    LeadRange{0x00, 0x7F, 1, 0x00, 0x00}, LeadRange{0xC2, 0xDF, 2, 0x80, 0xBF},
    LeadRange{0xE0, 0xE0, 3, 0xA0, 0xBF}, LeadRange{0xE1, 0xEC, 3, 0x80, 0xBF},
    LeadRange{0xED, 0xED, 3, 0x80, 0x9F}, LeadRange{0xEE, 0xEF, 3, 0x80, 0xBF},
    LeadRange{0xF0, 0xF0, 4, 0x90, 0xBF}, LeadRange{0xF1, 0xF3, 4, 0x80, 0xBF},
    LeadRange{0xF4, 0xF4, 4, 0x80, 0x8F}};

struct Part {
  std::size_t length;
  bool isWellFormed;
};

/// The character that `text` begins with, or the longest beginning of one, or one stray byte.
Part leadingPart(std::string_view text) {
  const auto byteAt = [text](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
  const auto range = std::find_if(leadRanges.begin(), leadRanges.end(), [&](const auto& r) {
    return byteAt(0) >= r.first && byteAt(0) <= r.last;
  });
  if (range == leadRanges.end()) return {1, false};
  for (std::size_t i = 1; i < range->length; ++i) {
    const std::uint8_t low = i == 1 ? range->secondFirst : 0x80;
    const std::uint8_t high = i == 1 ? range->secondLast : 0xBF;
    if (i == text.size() || byteAt(i) < low || byteAt(i) > high) return {i, false};
  }
  return {range->length, true};
}

std::string repaired(std::string_view text) {
  std::string result;
  result.reserve(text.size() + replacement.size());
  while (!text.empty()) {
    const Part part = leadingPart(text);
    result.append(part.isWellFormed ? text.substr(0, part.length) : replacement);
    text.remove_prefix(part.length);
  }
  return result;
}

bool isShortASCII(std::string_view text) {
  if (text.size() > 64) return false;  // the general check is as fast from here on
  std::uint64_t bits = 0;
  std::uint64_t eight;
  while (text.size() > sizeof eight) {
    std::memcpy(&eight, text.data(), sizeof eight);
    bits |= eight;
    text.remove_prefix(sizeof eight);
  }
  eight = 0;
  text.copy(reinterpret_cast<char*>(&eight), text.size());
  return ((bits | eight) & 0x8080'8080'8080'8080) == 0;
}

}  // namespace

bool isUTF8(std::string_view text) { return isShortASCII(text) || simdjson::validate_utf8(text); }

std::string repairedUTF8(std::string text) {
  if (isUTF8(text)) return text;
  return repaired(text);
}

std::string repairedUTF8(std::string_view text) {
  return isUTF8(text) ? std::string(text) : repaired(text);
}

}  // namespace kite
