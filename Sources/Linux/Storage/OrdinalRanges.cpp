#include "Linux/Storage/OrdinalRanges.h"

#include <algorithm>
#include <iterator>

namespace kite::Linux {

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

std::vector<Larder::OrdinalRange> OrdinalRanges::all() const {
  std::vector<Larder::OrdinalRange> ranges;
  for (const auto& [first, end] : _ends) ranges.push_back({first, end});
  return ranges;
}

}  // namespace kite::Linux
