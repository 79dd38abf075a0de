#pragma once

#include "Events/EncodedEvent.h"

#include <cstdint>
#include <limits>
#include <memory>
#include <utility>

namespace kite {

/// One event of the queue: the event itself until it is saved, from then on where its text is.
/// There may be very many, so that it is kept small.
class PendingEvent {
 public:
  PendingEvent() = default;
  PendingEvent(EventHandle event, std::uint64_t ordinal)
      : _ordinal(ordinal), _id(event->tag()), _holder(std::move(event)) {}
  /// A saved event whose tag is its identifier, and whose place it `canTell`.
  explicit PendingEvent(Larder::SavedRow row)
      : _ordinal(row.ordinal),
        _id(row.tag),
        _holder(std::move(row.place.file)),
        _offset(static_cast<std::uint32_t>(row.place.offset)),
        _size(row.place.size) {}

  /// Whether a pending event can say where this row is. If not, its text stays in memory: only an
  /// edit of more than 4 GiB has such rows.
  static bool canTell(const Larder::RowPlace& place) {
    return place.offset <= std::numeric_limits<std::uint32_t>::max();
  }

  std::uint64_t ordinal() const { return _ordinal; }
  /// Zero when the event is in memory, for good, and it alone knows its identifier.
  const UUID& id() const { return _id; }

  /// The event, or null when its text is in a file.
  EventHandle inMemory() const {
    return _size == 0 ? std::static_pointer_cast<const EncodedEvent>(_holder) : nullptr;
  }
  /// Where the text is, unless the event is in memory.
  Larder::RowPlace place() const {
    return {std::static_pointer_cast<const Larder::RowFile>(_holder), _offset, _size};
  }
  bool isInFile(const Larder::RowFile* file) const { return _size != 0 && _holder.get() == file; }

 private:
  std::uint64_t _ordinal = 0;
  UUID _id;
  std::shared_ptr<const void> _holder;  // an event, or with a size its file
  std::uint32_t _offset = 0;
  std::uint32_t _size = 0;
};

static_assert(sizeof(PendingEvent) <= 48);

}  // namespace kite
