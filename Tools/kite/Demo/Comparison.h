#pragma once

#include "Demo/Event.h"
#include "Demo/Ledger.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace kite::tool {

struct Tally {
  std::size_t tracked = 0;
  std::size_t delivered = 0;   ///< distinct events
  std::size_t duplicates = 0;  ///< arrivals beyond the first
  std::size_t rejected = 0;    ///< refused by the collector, and therefore still in the queue

  Tally& operator+=(const Tally& other);
};

/// The ledger held against the events that arrived.
struct Comparison {
  std::map<std::string, Tally> byType;
  std::vector<std::string> problems;  ///< every disagreement, in words

  Tally total() const;
};

/// Every tracked event must be there once, value for value; of the library's own the numbers must
/// be right; nothing else may be there.
Comparison compare(const Ledger& ledger, const std::vector<Event>& events);

}  // namespace kite::tool
