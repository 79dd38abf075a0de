#include "Queue/IdFilter.h"

#include <algorithm>

namespace kite {

IdFilter::IdFilter(const std::set<std::string>& ids) : _texts(ids) {
  _uuids.reserve(ids.size());
  for (const std::string& id : ids) {
    const auto uuid = UUID::parse(id);
    if (!uuid || uuid->text() != id) continue;
    _uuids.push_back(*uuid);
    _sieve.set(slot(*uuid));
  }
  std::ranges::sort(_uuids);
}

bool IdFilter::holds(const UUID& id) const { return std::ranges::binary_search(_uuids, id); }

bool IdFilter::matchesText(const PendingEvent& event) const {
  const auto inMemory = event.inMemory();
  return inMemory && _texts.contains(inMemory->id());
}

}  // namespace kite
