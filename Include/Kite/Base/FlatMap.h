#pragma once

#include <Kite/Base/Export.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <initializer_list>
#include <string_view>
#include <utility>
#include <vector>

namespace kite {

/// A map kept as one sorted vector: made in one allocation, small, quick to copy and to walk in key
/// order.
///
/// Inserting in ascending key order costs constant time, elsewhere time linear in the size;
/// `fromUnsorted` builds a large map from entries in any order.
template <class Key, class Value>
class KITE_EXPORT FlatMap {
 public:
  using key_type = Key;
  using mapped_type = Value;
  using value_type = std::pair<Key, Value>;
  using Entries = std::vector<value_type>;
  using const_iterator = typename Entries::const_iterator;
  using iterator = typename Entries::iterator;

  FlatMap() = default;
  FlatMap(std::initializer_list<value_type> entries) : FlatMap(fromUnsorted(Entries(entries))) {}

  /// Of entries with one key the last one wins. Entries that ascend already are taken as they are.
  static FlatMap fromUnsorted(Entries entries) {
    FlatMap map;
    map._entries = std::move(entries);
    map.sort();
    return map;
  }

  bool empty() const { return _entries.empty(); }
  std::size_t size() const { return _entries.size(); }
  void reserve(std::size_t count) { _entries.reserve(count); }
  void clear() { _entries.clear(); }

  const_iterator begin() const { return _entries.begin(); }
  const_iterator end() const { return _entries.end(); }
  iterator begin() { return _entries.begin(); }
  iterator end() { return _entries.end(); }

  /// Keys are looked up by anything that compares with a `Key`, such as a `std::string_view`.
  template <class K>
  const_iterator find(const K& key) const {
    const auto at = lowerBound(_entries, key);
    return at != _entries.end() && at->first == key ? at : _entries.end();
  }
  template <class K>
  bool contains(const K& key) const {
    return find(key) != end();
  }
  /// The value under `key`, or null.
  template <class K>
  const Value* at(const K& key) const {
    const auto found = find(key);
    return found == end() ? nullptr : &found->second;
  }

  Value& operator[](const Key& key) { return slot(key)->second; }

  void insertOrAssign(Key key, Value value) {
    if (_entries.empty() || _entries.back().first < key) {
      _entries.emplace_back(std::move(key), std::move(value));
    } else {
      slot(key)->second = std::move(value);
    }
  }

  template <class K>
  bool erase(const K& key) {
    const auto at = lowerBound(_entries, key);
    if (at == _entries.end() || at->first != key) return false;
    _entries.erase(at);
    return true;
  }

  /// Both maps in one; under a key that both have, `winner`'s value.
  FlatMap merged(const FlatMap& winner) const {
    FlatMap result;
    result.reserve(size() + winner.size());
    auto mine = begin();
    auto theirs = winner.begin();
    while (mine != end() || theirs != winner.end()) {
      if (theirs == winner.end() || (mine != end() && mine->first < theirs->first)) {
        result._entries.push_back(*mine++);
      } else {
        if (mine != end() && mine->first == theirs->first) ++mine;
        result._entries.push_back(*theirs++);
      }
    }
    return result;
  }

  friend bool operator==(const FlatMap& a, const FlatMap& b) { return a._entries == b._entries; }

 private:
  template <class E, class K>
  static auto lowerBound(E& entries, const K& key) {
    return std::lower_bound(
        entries.begin(), entries.end(), key,
        [](const value_type& entry, const K& wanted) { return entry.first < wanted; });
  }
  void sort() {
    const auto doesNotAscend = [](const auto& a, const auto& b) { return !(a.first < b.first); };
    if (std::adjacent_find(_entries.begin(), _entries.end(), doesNotAscend) == _entries.end())
      return;
    std::vector<value_type*> order;  // cheaper to sort than entries, in time and in code
    order.reserve(_entries.size());
    for (auto& entry : _entries) order.push_back(&entry);
    std::sort(order.begin(), order.end(), [](const value_type* a, const value_type* b) {
      return a->first == b->first ? std::less<>()(a, b) : a->first < b->first;
    });
    Entries sorted;
    sorted.reserve(order.size());
    for (value_type* entry : order) {
      if (!sorted.empty() && sorted.back().first == entry->first) sorted.pop_back();
      sorted.push_back(std::move(*entry));
    }
    _entries = std::move(sorted);
  }
  iterator slot(const Key& key) {
    const auto at = lowerBound(_entries, key);
    return at != _entries.end() && at->first == key ? at : _entries.emplace(at, key, Value());
  }

  Entries _entries;
};

}  // namespace kite
