#include "Demo/Comparison.h"

#include <fmt/format.h>

#include <set>

namespace kite::tool {
namespace {

/// Compares events with the ledger one by one.
class Comparer {
 public:
  explicit Comparer(const Ledger& ledger) : _ledger(ledger) {
    for (const auto& [sequence, tracked] : ledger.tracked()) ++tally(tracked.type).tracked;
    for (const auto& [kind, count] : ledger.expected()) tally(kind.first).tracked += count;
  }

  void take(const Event& event) {
    auto& counts = tally(event.type);
    ++counts.delivered;
    counts.duplicates += static_cast<std::size_t>(event.duplicates);
    if (const auto sequence = event.sequence()) {
      takeTracked(event, *sequence);
    } else {
      ++_own[{event.type, event.detail()}];
    }
  }

  Comparison finish() {
    for (const auto& [sequence, tracked] : _ledger.tracked()) {
      if (!_seen.contains(sequence)) problem("{} {} is missing", tracked.type, sequence);
    }
    for (const auto& [kind, count] : _ledger.expected()) compareOwn(kind, count);
    for (const auto& [kind, count] : _own) {
      if (!_ledger.expected().contains(kind)) compareOwn(kind, 0);
    }
    return std::move(_result);
  }

 private:
  void takeTracked(const Event& event, std::int64_t sequence) {
    const auto tracked = _ledger.tracked().find(sequence);
    if (tracked == _ledger.tracked().end())
      return problem("{} {} was refused but arrived", event.type, sequence);
    if (!_seen.insert(sequence).second)
      return problem("{} {} arrived under two ids", event.type, sequence);
    if (event.type != tracked->second.type || *event.content() != tracked->second.content)
      problem("{} {} arrived changed", event.type, sequence);
  }

  void compareOwn(const Ledger::Kind& kind, std::size_t wanted) {
    const auto found = _own.find(kind);
    const auto count = found == _own.end() ? 0 : found->second;
    if (count != wanted)
      problem("{} {}: {} arrived, {} should have", kind.first, kind.second, count, wanted);
  }

  template <class... Values>
  void problem(fmt::format_string<const Values&...> text, const Values&... values) {
    _result.problems.push_back(fmt::format(text, values...));
  }

  Tally& tally(const std::string& type) { return _result.byType[type]; }

  const Ledger& _ledger;
  Comparison _result;
  std::set<std::int64_t> _seen;
  std::map<Ledger::Kind, std::size_t> _own;
};

}  // namespace

Tally& Tally::operator+=(const Tally& other) {
  tracked += other.tracked;
  delivered += other.delivered;
  duplicates += other.duplicates;
  rejected += other.rejected;
  return *this;
}

Tally Comparison::total() const {
  Tally sum;
  for (const auto& [type, tally] : byType) sum += tally;
  return sum;
}

Comparison compare(const Ledger& ledger, const std::vector<Event>& events) {
  Comparer comparer(ledger);
  for (const auto& event : events) comparer.take(event);
  return comparer.finish();
}

}  // namespace kite::tool
