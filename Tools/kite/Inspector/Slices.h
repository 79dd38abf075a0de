#pragma once

#include "Collector/Store/EventStore.h"

#include <algorithm>
#include <optional>

namespace kite::tool {

/// A range of rows in pieces that are read at once.
class Slices {
 public:
  static constexpr Seq size = 2000;

  Slices(SeqRange range, Order order) : _left(range), _order(order) {}

  Order order() const { return _order; }
  /// The next piece; nothing when there is none.
  std::optional<SeqRange> next() {
    if (_left.first > _left.last || _left.last <= 0) return std::nullopt;
    SeqRange slice = _left;
    if (_order == Order::oldestFirst) {
      slice.last = std::min(_left.last, _left.first + size - 1);
      _left.first = slice.last + 1;
    } else {
      slice.first = std::max(_left.first, _left.last - size + 1);
      _left.last = slice.first - 1;
    }
    return slice;
  }

 private:
  SeqRange _left;
  Order _order;
};

}  // namespace kite::tool
