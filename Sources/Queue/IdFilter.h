#pragma once

#include "Events/EncodedEvent.h"

#include <bitset>
#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kite {

std::uint64_t idHash(std::string_view id);
std::uint64_t idHash(const EncodedEvent& event);

/// A set of identifiers, made to be asked about very many events of which few or none are in it.
class IdFilter {
 public:
  /// `ids` outlives the filter.
  explicit IdFilter(const std::set<std::string>& ids);

  /// `hash` is that of the event's identifier.
  bool matches(std::uint64_t hash, const EncodedEvent& event) const {
    return mayHold(hash) && holds(hash, event);
  }
  /// False only when no identifier of the set has this hash.
  bool mayHold(std::uint64_t hash) const { return _sieve[hash % sieveSize]; }

 private:
  bool holds(std::uint64_t hash, const EncodedEvent& event) const;

  static constexpr std::size_t sieveSize = 1 << 16;

  std::bitset<sieveSize> _sieve;
  std::vector<std::pair<std::uint64_t, std::string_view>> _byHash;  // sorted
};

}  // namespace kite
