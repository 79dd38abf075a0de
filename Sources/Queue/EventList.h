#pragma once

#include "Events/EncodedEvent.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace kite {

class IdFilter;

/// A queue of events, oldest first, that is copied in constant time.
///
/// Copies share the events in chunks. Appending touches the last chunk only, removal the chunks
/// that hold a removed event. Every event has an ordinal: ascending, never used twice. One list is
/// for one thread at a time; its copies are independent of it and may live on other threads.
class EventList {
 public:
  EventList();

  std::size_t size() const { return _size; }
  bool empty() const { return _size == 0; }
  const EventHandle& operator[](std::size_t index) const;

  /// Whether every event has a stored form.
  bool isEncodable() const { return _unencodable == 0; }

  /// The oldest events, at most `count`.
  EventBatch first(std::size_t count) const;

  void append(EventHandle event) { append(std::move(event), _nextOrdinal); }
  /// `ordinal` is above those of all events.
  void append(EventHandle event, std::uint64_t ordinal);

  /// Ordinals from `next` on are the first to be used.
  void skipOrdinals(std::uint64_t next) { _nextOrdinal = std::max(_nextOrdinal, next); }

  /// Removes every event with one of these identifiers.
  void remove(const std::set<std::string>& ids);

  /// What takes a stored list from anything to this one.
  Larder::ListEdit wholeEdit() const;
  /// What takes a stored list from `saved`, an earlier state of this one, to this one. Costs time
  /// in proportion to the number of chunks and of changes.
  Larder::ListEdit editFrom(const EventList& saved) const;

 private:
  class Cursor;
  struct Chunk;
  struct Slice {
    std::shared_ptr<Chunk> chunk;
    std::size_t count = 0;

    std::uint64_t firstOrdinal() const;
    std::uint64_t lastOrdinal() const;
  };
  using Slices = std::vector<Slice>;

  std::size_t sliceCount() const { return _full->size() + (_tail.count > 0 ? 1 : 0); }
  const Slice& slice(std::size_t index) const {
    return index < _full->size() ? (*_full)[index] : _tail;
  }
  void makeRoomInTail();
  /// The slice, or a copy of what the filter leaves of it, with room for `capacity` events.
  Slice without(const Slice& slice, const IdFilter& filter, std::size_t capacity = 0);
  void appendRows(std::vector<Larder::Row>& rows, std::uint64_t firstOrdinal) const;

  std::shared_ptr<const Slices> _full;  // never changes; a new one takes its place
  Slice _tail;                          // may have room for more; without events it has no chunk
  std::size_t _size = 0;
  std::size_t _unencodable = 0;
  std::uint64_t _nextOrdinal = 0;
};

}  // namespace kite
