#include "Linux/Storage/OrdinalRanges.h"

#include "Linux/Storage/Record.h"

#include <algorithm>
#include <iterator>

namespace kite::Linux {

namespace {

constexpr std::size_t numberSize = 8;
constexpr std::size_t rangeSize = 2 * numberSize;

}  // namespace

void OrdinalRanges::add(Larder::OrdinalRange range) {
  if (range.first >= range.end) return;
  auto next = _ends.upper_bound(range.first);
  if (next != _ends.begin() && std::prev(next)->second >= range.first) --next;
  while (next != _ends.end() && next->first <= range.end) {
    range = {std::min(range.first, next->first), std::max(range.end, next->second)};
    next = _ends.erase(next);
  }
  _ends.emplace_hint(next, range.first, range.end);
}

std::uint64_t OrdinalRanges::countIn(Larder::OrdinalRange range) const {
  auto next = _ends.upper_bound(range.first);
  if (next != _ends.begin()) --next;
  std::uint64_t count = 0;
  for (; next != _ends.end() && next->first < range.end; ++next) {
    const auto first = std::max(range.first, next->first), end = std::min(range.end, next->second);
    if (first < end) count += end - first;
  }
  return count;
}

void OrdinalRanges::addAll(std::string_view payload) {
  for (std::size_t at = 0; at + rangeSize <= payload.size(); at += rangeSize)
    add({numberAt(payload, at, numberSize), numberAt(payload, at + numberSize, numberSize)});
}

std::string OrdinalRanges::payload() const {
  std::string payload;
  for (const auto& [first, end] : _ends) {
    appendNumber(payload, first, numberSize);
    appendNumber(payload, end, numberSize);
  }
  return payload;
}

}  // namespace kite::Linux
