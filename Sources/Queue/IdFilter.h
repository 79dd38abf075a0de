#pragma once

#include "Queue/PendingEvent.h"

#include <bitset>
#include <set>
#include <string>
#include <vector>

namespace kite {

/// A set of identifiers, made to be asked about very many events of which few or none are in it.
class IdFilter {
 public:
  /// `ids` outlives the filter.
  explicit IdFilter(const std::set<std::string>& ids);

  bool matches(const PendingEvent& event) const { return _sieve[slot(event.id())] && holds(event); }

 private:
  static constexpr std::size_t sieveSize = 1 << 16;

  /// By the last bytes, which are random in a random UUID.
  static std::size_t slot(const UUID& id) { return std::size_t{id.bytes[14]} << 8U | id.bytes[15]; }
  bool holds(const PendingEvent& event) const;

  std::bitset<sieveSize> _sieve;
  std::vector<UUID> _uuids;  // sorted
  const std::set<std::string>& _texts;
};

}  // namespace kite
