#pragma once

#include "Inspector/Call.h"
#include "Inspector/Slices.h"

#include <functional>
#include <memory>
#include <string>

namespace kite::tool {

/// The rows of one answer, as far as they are found.
class Page {
 public:
  /// The rows of the range that lie behind "after" and before "before".
  Page(const Call& call, SeqRange range, Order order);

  /// Takes the row, if it matches; false when the page is full.
  template <class Record, class JSON>
  bool offer(const Record& record, const JSON& json) {
    if (!_query.matches(record)) return true;
    _rows += (_count++ > 0 ? "," : "") + json(record);
    _last = record.seq;
    return _count < _limit;
  }

  const Query& query() const { return _query; }
  Slices& slices() { return _slices; }
  bool isFull() const { return _count == _limit; }
  std::string json(std::string_view name) const;

 private:
  Query _query;
  Slices _slices;
  std::size_t _limit;
  std::string _rows;
  std::size_t _count = 0;
  Seq _last = 0;
};

/// Fills the page slice by slice and answers with it.
void answerPage(Exchange& exchange, std::string_view name, std::shared_ptr<Page> page,
                std::function<void(SeqRange, Page&)> scan);

/// The part of the range that lies behind "after" and before "before".
SeqRange withinMembers(const Call& call, SeqRange range);

}  // namespace kite::tool
