#include "Queue/EventList.h"

#include "Queue/EventReader.h"
#include "Queue/IdFilter.h"

#include <algorithm>
#include <atomic>
#include <optional>
#include <span>
#include <string_view>
#include <utility>

namespace kite {

/// Places for events. A place is written once, by the list that claimed it, and read only by lists
/// that count it.
struct EventList::Chunk {
  static constexpr std::size_t fullCapacity = 512;

  explicit Chunk(std::size_t capacity) : events(capacity) {}

  std::size_t capacity() const { return events.size(); }
  /// Whether the place `index` is now the caller's to write.
  bool claim(std::size_t index) { return used.compare_exchange_strong(index, index + 1); }
  /// A chunk of its own with those of the first `count` events that `keep` wants.
  template <class Keep>
  Slice filtered(std::size_t count, std::size_t newCapacity, Keep keep) const {
    Slice result{std::make_shared<Chunk>(newCapacity)};
    for (std::size_t i = 0; i < count; ++i) {
      if (keep(events[i])) result.chunk->events[result.count++] = events[i];
    }
    result.chunk->used = result.count;
    return result;
  }

  std::vector<PendingEvent> events;
  std::atomic<std::size_t> used{0};
};

std::uint64_t EventList::Slice::firstOrdinal() const { return chunk->events[0].ordinal(); }
std::uint64_t EventList::Slice::lastOrdinal() const { return chunk->events[count - 1].ordinal(); }

namespace {

constexpr auto everything = [](const PendingEvent&) { return true; };

/// Puts the events of a batch that are in one file into it, from `batch[first]` on.
std::optional<std::string> readFile(const std::vector<PendingEvent>& events, std::size_t first,
                                    std::size_t end, EventBatch& batch) {
  std::vector<Larder::RowPlace> places;
  for (std::size_t i = first; i < end; ++i) places.push_back(events[i].place());
  EventReader reader;
  return places.front().file->read(places, [&](std::optional<std::string_view> text) {
    const auto& event = events[batch.size()];
    auto read = text ? reader.readSaved(*text) : nullptr;
    batch.push_back(read ? std::move(read) : EncodedEvent::lost(event.id()));
  });
}

}  // namespace

EventList::EventList() : _full(std::make_shared<const Slices>()) {}

EventList::Reading EventList::first(std::size_t count) const {
  std::vector<PendingEvent> events;
  events.reserve(std::min(count, _size));
  for (std::size_t i = 0; i < sliceCount() && events.size() < count; ++i) {
    const auto begin = slice(i).chunk->events.begin();
    const auto taken = std::min(slice(i).count, count - events.size());
    events.insert(events.end(), begin, begin + static_cast<std::ptrdiff_t>(taken));
  }
  EventBatch batch;
  batch.reserve(events.size());
  while (batch.size() < events.size()) {
    const auto& event = events[batch.size()];
    if (auto inMemory = event.inMemory()) {
      batch.push_back(std::move(inMemory));
      continue;
    }
    const auto* const file = event.place().file.get();
    auto end = batch.size() + 1;
    while (end < events.size() && events[end].isInFile(file)) ++end;
    if (auto error = readFile(events, batch.size(), end, batch)) return Failure{*std::move(error)};
  }
  return batch;
}

std::size_t EventList::countFrom(std::uint64_t ordinal) const {
  std::size_t count = 0;
  for (auto i = sliceCount(); i > 0 && slice(i - 1).lastOrdinal() >= ordinal; --i) {
    const auto events = std::span(slice(i - 1).chunk->events).first(slice(i - 1).count);
    const auto from = std::ranges::lower_bound(events, ordinal, {}, &PendingEvent::ordinal);
    count += static_cast<std::size_t>(events.end() - from);
  }
  return count;
}

void EventList::append(EventHandle event, std::uint64_t ordinal) {
  const bool isEncodable = event->encodingError() == nullptr;
  append(PendingEvent(std::move(event), ordinal));
  if (!isEncodable) ++_unencodable;
}

void EventList::append(Larder::SavedRow row) { append(PendingEvent(std::move(row))); }

void EventList::append(PendingEvent event) {
  const auto ordinal = event.ordinal();
  makeRoomInTail();
  _tail.chunk->events[_tail.count++] = std::move(event);
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
  _tail = _tail.chunk->filtered(_tail.count, Chunk::fullCapacity, everything);
  _tail.chunk->claim(_tail.count);
}

/// Puts what `change(slice, capacity)` makes of each slice in its place, with room for `capacity`
/// events at least.
template <class Change>
void EventList::changeSlices(Change change) {
  auto changed = std::make_shared<Slices>();
  changed->reserve(_full->size());
  for (const Slice& full : *_full) {
    if (Slice slice = change(full, 0); slice.count > 0) changed->push_back(std::move(slice));
  }
  Slice tail = _tail.count > 0 ? change(_tail, Chunk::fullCapacity) : _tail;
  _full = std::move(changed);
  _tail = std::move(tail);
}

void EventList::remove(const std::set<std::string>& ids) {
  const IdFilter filter(ids);
  std::size_t size = _size, unencodable = _unencodable;
  changeSlices([&](const Slice& slice, std::size_t capacity) -> Slice {
    std::vector<std::uint64_t> removed;
    for (std::size_t i = 0; i < slice.count; ++i) {
      const auto& event = slice.chunk->events[i];
      if (!filter.matches(event)) continue;
      removed.push_back(event.ordinal());
      const auto inMemory = event.inMemory();
      if (inMemory && inMemory->encodingError()) --unencodable;
    }
    size -= removed.size();
    if (removed.empty()) return slice;
    if (removed.size() == slice.count) return {};
    const auto rest = slice.count - removed.size();
    return slice.chunk->filtered(slice.count, std::max(rest, capacity), [&](const auto& event) {
      return !std::ranges::binary_search(removed, event.ordinal());
    });
  });
  _size = size;
  _unencodable = unencodable;
}

void EventList::place(std::vector<Larder::SavedRow> rows) {
  std::ranges::sort(rows, {}, &Larder::SavedRow::ordinal);
  auto row = rows.begin();
  changeSlices([&](const Slice& slice, std::size_t capacity) -> Slice {
    while (row != rows.end() && row->ordinal < slice.firstOrdinal()) ++row;
    if (row == rows.end() || row->ordinal > slice.lastOrdinal()) return slice;
    Slice placed = slice.chunk->filtered(slice.count, std::max(slice.count, capacity), everything);
    for (std::size_t i = 0; i < placed.count && row != rows.end(); ++i) {
      auto& event = placed.chunk->events[i];
      while (row != rows.end() && row->ordinal < event.ordinal()) ++row;
      if (row == rows.end() || row->ordinal != event.ordinal()) continue;
      if (event.id() == UUID() || !PendingEvent::canTell(row->place)) continue;
      event = PendingEvent({event.ordinal(), event.id(), std::move(row->place)});
    }
    return placed;
  });
}

Result<Larder::ListEdit, std::string> EventList::wholeEdit() const {
  auto events = first(_size);
  if (!events) return Failure{std::move(events.error())};
  Larder::ListEdit edit{.replacesAll = true, .removed = {}, .appended = {}};
  edit.appended.reserve(_size);
  auto event = events->begin();
  for (std::size_t i = 0; i < sliceCount(); ++i) {
    for (std::size_t k = 0; k < slice(i).count; ++k, ++event) {
      const auto& pending = slice(i).chunk->events[k];
      if (!(*event)->isLost()) edit.appended.push_back({pending.ordinal(), *event, pending.id()});
    }
  }
  return edit;
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
    const auto& events = _list.slice(_slice).chunk->events;
    while (events[_place].ordinal() < ordinal) ++_place;
    return events[_place].ordinal() == ordinal;
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
        const auto ordinal = old.chunk->events[k].ordinal();
        mine.seek(ordinal) ? removed.keep() : removed.remove({ordinal, ordinal + 1});
      }
    }
  }
  Larder::ListEdit edit{.replacesAll = false, .removed = removed.take(), .appended = {}};
  std::size_t from = sliceCount();
  while (from > 0 && slice(from - 1).lastOrdinal() >= saved._nextOrdinal) --from;
  for (std::size_t i = from; i < sliceCount(); ++i) {
    for (std::size_t k = 0; k < slice(i).count; ++k) {
      const auto& event = slice(i).chunk->events[k];
      if (event.ordinal() < saved._nextOrdinal) continue;
      edit.appended.push_back({event.ordinal(), event.inMemory(), event.id()});
    }
  }
  return edit;
}

}  // namespace kite
