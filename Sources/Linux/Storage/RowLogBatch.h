#pragma once

#include "Base/CatchingBadAlloc.h"
#include "Linux/Storage/RowLog.h"

#include <string>

namespace kite::Linux {

/// One edit on its way into the last segment: all of it or nothing.
class RowLog::Batch {
 public:
  /// `placed` gets the rows once they are there.
  Batch(RowLog& log, std::uint32_t list, Placed& placed)
      : _log(log),
        _segment(log._segments.rbegin()->second),
        _seed(seedFor(log._store)),
        _list(list),
        _begin(log._active->size()),
        _rows(log._written.rows.size()),
        _changes(log._written.changes.size()),
        _placed(placed),
        _placedBefore(placed.size()) {}
  Batch(const Batch&) = delete;
  Batch& operator=(const Batch&) = delete;
  ~Batch() {
    if (_isFinished) return;
    _log._active->cut(_begin);
    _log._written.rows.resize(_rows);
    _log._written.changes.resize(_changes);
    _placed.resize(_placedBefore);
  }

  void addChange(const Record& record) {
    const auto list = record.list == 0 ? _list : record.list;
    _log._written.changes.push_back({record.kind, list, std::string(record.payload)});
    add(record);
  }
  void addRow(const Record& row) {
    const auto list = row.list == 0 ? _list : row.list;
    const auto offset = _log._active->size() + _piece.size();
    const auto size = static_cast<std::uint32_t>(Record::headerSize + row.payload.size());
    _log._written.rows.push_back({list, size, row.ordinal, offset, row.tag});
    _placed.push_back({row.ordinal, row.tag, {_segment.file, offset, size}});
    _segment.note(list, row.ordinal);
    add(row);
  }
  bool finish() {
    add({.kind = Record::Kind::editEnd});
    write();
    if (!_isWritten) return false;
    ++_log._lastEdit;
    _segment.size = _log._active->size();
    _log._loaded.clear();
    _isFinished = true;
    if (_segment.size >= fullSegment) catchingBadAlloc([this] { _log.writeIndex(); });
    return true;
  }

 private:
  static constexpr std::size_t pieceSize = 1024 * 1024;

  void add(Record record) {
    record.edit = _log._lastEdit + 1;
    if (record.list == 0) record.list = _list;
    append(_piece, record, _seed);
    if (_piece.size() >= pieceSize) write();
  }
  void write() {
    _isWritten = _isWritten && _log._active->append(_piece);
    _piece.clear();
  }

  RowLog& _log;
  Segment& _segment;
  std::uint32_t _seed;
  std::uint32_t _list;
  std::uint64_t _begin;
  std::size_t _rows;
  std::size_t _changes;
  Placed& _placed;
  std::size_t _placedBefore;
  std::string _piece;
  bool _isWritten = true;
  bool _isFinished = false;
};

}  // namespace kite::Linux
