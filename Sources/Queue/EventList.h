#pragma once

#include <Kite/Base/Result.h>

#include "Queue/PendingEvent.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace kite {

/// A queue of events, oldest first, that is copied in constant time.
///
/// Copies share the events in chunks. Appending touches the last chunk only, removal the chunks
/// that hold a removed event. Every event has an ordinal: ascending, never used twice. One list is
/// for one thread at a time; its copies are independent of it and may live on other threads.
class EventList {
 public:
  /// The events, or why the file that has their texts cannot be read.
  using Reading = Result<EventBatch, std::string>;

  EventList();

  std::size_t size() const { return _size; }
  bool empty() const { return _size == 0; }

  /// Whether the other list is a copy of this one, or the other way round.
  bool isSame(const EventList& other) const {
    return _full == other._full && _tail.chunk == other._tail.chunk &&
           _tail.count == other._tail.count;
  }

  /// Above the ordinals of all events that the list has held.
  std::uint64_t nextOrdinal() const { return _nextOrdinal; }
  /// How many events have `ordinal` or one above it.
  std::size_t countFrom(std::uint64_t ordinal) const;

  /// Whether every event has a stored form.
  bool isEncodable() const { return _unencodable == 0; }

  /// The oldest events, at most `count`. Reads the texts of those that were saved; one whose text
  /// is damaged is lost, and is among them all the same.
  Reading first(std::size_t count) const;

  void append(EventHandle event) { append(std::move(event), _nextOrdinal); }
  /// `ordinal` is above those of all events.
  void append(EventHandle event, std::uint64_t ordinal);
  /// A saved event whose tag is its identifier, and whose place a `PendingEvent` can tell.
  void append(Larder::SavedRow row);

  /// Ordinals from `next` on are the first to be used.
  void skipOrdinals(std::uint64_t next) { _nextOrdinal = std::max(_nextOrdinal, next); }

  /// Removes every event with one of these identifiers.
  void remove(const std::set<std::string>& ids);

  /// From now on the texts of these events are where they were saved, and not in memory. Rows that
  /// the list does not hold, without a tag, or whose place a `PendingEvent` cannot tell are
  /// ignored.
  void place(std::vector<Larder::SavedRow> rows);

  /// What takes a stored list from anything to this one, but for the events that are lost.
  Result<Larder::ListEdit, std::string> wholeEdit() const;
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
  void append(PendingEvent event);
  void makeRoomInTail();
  template <class Change>
  void changeSlices(Change change);

  std::shared_ptr<const Slices> _full;  // never changes; a new one takes its place
  Slice _tail;                          // may have room for more; without events it has no chunk
  std::size_t _size = 0;
  std::size_t _unencodable = 0;
  std::uint64_t _nextOrdinal = 0;
};

}  // namespace kite
