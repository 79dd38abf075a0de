#include "Queue/IdFilter.h"

#include <algorithm>
#include <functional>

namespace kite {

std::uint64_t idHash(std::string_view id) { return std::hash<std::string_view>{}(id); }

std::uint64_t idHash(const EncodedEvent& event) {
  const auto plain = event.plainId();
  return idHash(plain ? *plain : event.id());
}

IdFilter::IdFilter(const std::set<std::string>& ids) {
  _byHash.reserve(ids.size());
  for (const std::string& id : ids) {
    const std::uint64_t hash = idHash(id);
    _sieve.set(hash % sieveSize);
    _byHash.emplace_back(hash, id);
  }
  std::sort(_byHash.begin(), _byHash.end());
}

bool IdFilter::holds(std::uint64_t hash, const EncodedEvent& event) const {
  const auto candidates =
      std::equal_range(_byHash.begin(), _byHash.end(), std::pair(hash, std::string_view()),
                       [](const auto& a, const auto& b) { return a.first < b.first; });
  return std::any_of(candidates.first, candidates.second,
                     [&](const auto& candidate) { return event.hasId(candidate.second); });
}

}  // namespace kite
