#include "Queue/EventList.h"

#include "Queue/IdFilter.h"

#include <algorithm>
#include <atomic>
#include <utility>

namespace kite {

/// Places for events. A place is written once, by the list that claimed it, and read only by lists
/// that count it.
struct EventList::Chunk {
  static constexpr std::size_t fullCapacity = 512;

  explicit Chunk(std::size_t capacity) : idHashes(capacity), ordinals(capacity), events(capacity) {}

  std::size_t capacity() const { return events.size(); }
  /// Whether the place `index` is now the caller's to write.
  bool claim(std::size_t index) { return used.compare_exchange_strong(index, index + 1); }
  void write(std::size_t index, EventHandle event, std::uint64_t hash, std::uint64_t ordinal) {
    idHashes[index] = hash;
    ordinals[index] = ordinal;
    events[index] = std::move(event);
  }
  /// A chunk of its own with those of the first `count` events that `keep` wants.
  template <class Keep>
  Slice filtered(std::size_t count, std::size_t newCapacity, Keep keep) const {
    Slice result{std::make_shared<Chunk>(newCapacity)};
    for (std::size_t i = 0; i < count; ++i) {
      if (keep(i)) result.chunk->write(result.count++, events[i], idHashes[i], ordinals[i]);
    }
    result.chunk->used = result.count;
    return result;
  }

  std::vector<std::uint64_t> idHashes;
  std::vector<std::uint64_t> ordinals;
  std::vector<EventHandle> events;
  std::atomic<std::size_t> used{0};
};

std::uint64_t EventList::Slice::firstOrdinal() const { return chunk->ordinals[0]; }
std::uint64_t EventList::Slice::lastOrdinal() const { return chunk->ordinals[count - 1]; }

EventList::EventList() : _full(std::make_shared<const Slices>()) {}

const EventHandle& EventList::operator[](std::size_t index) const {
  std::size_t at = 0;
  while (index >= slice(at).count) index -= slice(at++).count;
  return slice(at).chunk->events[index];
}

EventBatch EventList::first(std::size_t count) const {
  EventBatch batch;
  batch.reserve(std::min(count, _size));
  for (std::size_t i = 0; i < sliceCount() && batch.size() < count; ++i) {
    const auto events = slice(i).chunk->events.begin();
    const auto taken = std::min(slice(i).count, count - batch.size());
    batch.insert(batch.end(), events, events + static_cast<std::ptrdiff_t>(taken));
  }
  return batch;
}

void EventList::append(EventHandle event, std::uint64_t ordinal) {
  const std::uint64_t hash = idHash(*event);
  makeRoomInTail();
  if (event->encodingError()) ++_unencodable;
  _tail.chunk->write(_tail.count++, std::move(event), hash, ordinal);
  ++_size;
  _nextOrdinal = std::max(_nextOrdinal, ordinal + 1);
}

void EventList::makeRoomInTail() {
  if (_tail.chunk && _tail.count == _tail.chunk->capacity()) {
    auto full = std::make_shared<Slices>();
    full->reserve(_full->size() + 1);
    *full = *_full;
    full->push_back(std::exchange(_tail, {}));
    _full = std::move(full);
  }
  if (!_tail.chunk) _tail.chunk = std::make_shared<Chunk>(Chunk::fullCapacity);
  if (_tail.chunk->claim(_tail.count)) return;
  // A copy of this list has gone on from here by itself.
  const auto everything = [](std::size_t) { return true; };
  _tail = _tail.chunk->filtered(_tail.count, Chunk::fullCapacity, everything);
  _tail.chunk->claim(_tail.count);
}

void EventList::remove(const std::set<std::string>& ids) {
  const IdFilter filter(ids);
  auto kept = std::make_shared<Slices>();
  kept->reserve(_full->size());
  for (const Slice& full : *_full) {
    if (Slice rest = without(full, filter); rest.count > 0) kept->push_back(std::move(rest));
  }
  _full = std::move(kept);
  _tail = without(_tail, filter, Chunk::fullCapacity);
}

EventList::Slice EventList::without(const Slice& slice, const IdFilter& filter,
                                    std::size_t capacity) {
  std::vector<std::size_t> removed;
  for (std::size_t i = 0; i < slice.count; ++i) {
    const EventHandle& event = slice.chunk->events[i];
    if (!filter.matches(slice.chunk->idHashes[i], *event)) continue;
    removed.push_back(i);
    if (event->encodingError()) --_unencodable;
  }
  _size -= removed.size();
  if (removed.empty()) return slice;
  if (removed.size() == slice.count) return {};
  const std::size_t rest = slice.count - removed.size();
  return slice.chunk->filtered(slice.count, std::max(rest, capacity), [&](std::size_t i) {
    return !std::binary_search(removed.begin(), removed.end(), i);
  });
}

Larder::ListEdit EventList::wholeEdit() const {
  Larder::ListEdit edit{.replacesAll = true, .removed = {}, .appended = {}};
  appendRows(edit.appended, 0);
  return edit;
}

void EventList::appendRows(std::vector<Larder::Row>& rows, std::uint64_t firstOrdinal) const {
  std::size_t from = sliceCount();
  while (from > 0 && slice(from - 1).lastOrdinal() >= firstOrdinal) --from;
  for (std::size_t i = from; i < sliceCount(); ++i) {
    const Chunk& chunk = *slice(i).chunk;
    for (std::size_t k = 0; k < slice(i).count; ++k) {
      if (chunk.ordinals[k] >= firstOrdinal)
        rows.push_back({.ordinal = chunk.ordinals[k], .segment = chunk.events[k]});
    }
  }
}

/// Walks the ordinals of a list once, upwards.
class EventList::Cursor {
 public:
  explicit Cursor(const EventList& list) : _list(list) {}

  /// Goes to the first slice that reaches as far as `ordinal`; false when there is none.
  bool seekSlice(std::uint64_t ordinal) {
    while (_slice < _list.sliceCount() && _list.slice(_slice).lastOrdinal() < ordinal) {
      ++_slice;
      _place = 0;
    }
    return _slice < _list.sliceCount();
  }
  bool isIn(const std::shared_ptr<Chunk>& chunk) const {
    return _list.slice(_slice).chunk == chunk;
  }
  /// Whether the list holds `ordinal`.
  bool seek(std::uint64_t ordinal) {
    if (!seekSlice(ordinal)) return false;
    const auto& ordinals = _list.slice(_slice).chunk->ordinals;
    while (ordinals[_place] < ordinal) ++_place;
    return ordinals[_place] == ordinal;
  }

 private:
  const EventList& _list;
  std::size_t _slice = 0;
  std::size_t _place = 0;
};

namespace {

/// Collects removed ordinals, neighbours in one range.
class RemovedOrdinals {
 public:
  void keep() { _isOpen = false; }
  void remove(Larder::OrdinalRange range) {
    if (_isOpen) {
      _ranges.back().end = range.end;
    } else {
      _ranges.push_back(range);
    }
    _isOpen = true;
  }
  std::vector<Larder::OrdinalRange> take() { return std::move(_ranges); }

 private:
  std::vector<Larder::OrdinalRange> _ranges;
  bool _isOpen = false;
};

}  // namespace

Larder::ListEdit EventList::editFrom(const EventList& saved) const {
  RemovedOrdinals removed;
  Cursor mine(*this);
  for (std::size_t i = 0; i < saved.sliceCount(); ++i) {
    const Slice& old = saved.slice(i);
    const bool reaches = mine.seekSlice(old.firstOrdinal());
    if (!reaches) {
      removed.remove({old.firstOrdinal(), old.lastOrdinal() + 1});
    } else if (mine.isIn(old.chunk)) {
      removed.keep();
    } else {
      for (std::size_t k = 0; k < old.count; ++k) {
        const std::uint64_t ordinal = old.chunk->ordinals[k];
        mine.seek(ordinal) ? removed.keep() : removed.remove({ordinal, ordinal + 1});
      }
    }
  }
  Larder::ListEdit edit{.replacesAll = false, .removed = removed.take(), .appended = {}};
  appendRows(edit.appended, saved._nextOrdinal);
  return edit;
}

}  // namespace kite
