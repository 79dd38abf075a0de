#include "Queue/IdFilter.h"

#include "Base/UUIDText.h"

#include <algorithm>

namespace kite {

IdFilter::IdFilter(const std::set<std::string>& ids) : _texts(ids) {
  _sieve.set(slot(UUID()));  // of events that alone know their identifiers
  _uuids.reserve(ids.size());
  for (const std::string& id : ids) {
    const auto uuid = UUID::parse(id);
    if (!uuid || UUIDText(*uuid).view() != id) continue;
    _uuids.push_back(*uuid);
    _sieve.set(slot(*uuid));
  }
  std::ranges::sort(_uuids);
}

bool IdFilter::holds(const PendingEvent& event) const {
  if (event.id() != UUID()) return std::ranges::binary_search(_uuids, event.id());
  const auto inMemory = event.inMemory();
  return inMemory && _texts.contains(inMemory->id());
}

}  // namespace kite
