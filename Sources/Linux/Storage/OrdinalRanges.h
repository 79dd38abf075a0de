#pragma once

#include <Kite/Platform/Larder.h>

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace kite::Linux {

/// A set of ordinals, kept as ranges that do not touch.
class OrdinalRanges {
 public:
  void add(Larder::OrdinalRange range);
  /// The ranges that a record says are removed.
  void addAll(std::string_view payload);
  bool contains(std::uint64_t ordinal) const { return countIn({ordinal, ordinal + 1}) == 1; }
  /// How many ordinals of `range` are in the set.
  std::uint64_t countIn(Larder::OrdinalRange range) const;
  /// The set as a record's payload.
  std::string payload() const;
  /// Above all that is in the set.
  std::uint64_t end() const { return _ends.empty() ? 0 : _ends.rbegin()->second; }

 private:
  std::map<std::uint64_t, std::uint64_t> _ends;  // by the first of each range
};

}  // namespace kite::Linux
