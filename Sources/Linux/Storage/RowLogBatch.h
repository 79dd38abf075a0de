#pragma once

#include "Base/CatchingBadAlloc.h"
#include "Linux/Storage/RowLog.h"

#include <algorithm>
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
        _placed(placed),
        _placedBefore(placed.size()) {
    log._written.unfinished = {.edit = log._lastEdit + 1,
                               .begin = log._active->size(),
                               .rows = log._written.rows.size(),
                               .changes = log._written.changes.size()};
  }
  Batch(const Batch&) = delete;
  Batch& operator=(const Batch&) = delete;
  ~Batch() {
    auto& written = _log._written;
    if (!written.unfinished) return;
    _log._active->cut(written.unfinished->begin);
    written.dropUnfinished();
    _placed.resize(_placedBefore);
  }

  void addChange(Record change) {
    if (change.list == 0) change.list = _list;
    _log._written.changes.push_back({change.kind, change.list, std::string(change.payload)});
    add(change);
  }
  /// Makes room for rows whose texts have so many bytes.
  void expectRows(std::size_t count, std::size_t textBytes) {
    _piece.reserve(std::min(pieceSize, _piece.size() + count * Record::headerSize + textBytes));
  }
  /// A row of the text that `appendText(out)` appends.
  template <class AppendText>
  void addRow(Record row, AppendText appendText) {
    if (row.list == 0) row.list = _list;
    row.edit = _log._lastEdit + 1;
    const auto begin = _piece.size();
    appendRecord(_piece, row, _seed, [&] { appendText(_piece); });
    const auto offset = _log._active->size() + begin;
    const auto size = static_cast<std::uint32_t>(_piece.size() - begin);
    _log._written.rows.push_back({row.list, size, row.ordinal, offset, row.tag});
    _placed.push_back({row.ordinal, row.tag, {_segment.file, offset, size}});
    _segment.note(row.list, row.ordinal);
    writeIfMuch();
  }
  bool finish() {
    add({.kind = Record::Kind::editEnd, .list = _list});
    write();
    if (!_isWritten) return false;
    ++_log._lastEdit;
    _segment.size = _log._active->size();
    _log._loaded.clear();
    _log._written.unfinished.reset();
    if (_segment.size < fullSegment) return true;
    catchingBadAlloc([this] { _log.writeIndex(); });
    _log._written = {};  // nothing is added to a full segment
    return true;
  }

 private:
  static constexpr std::size_t pieceSize = 1024 * 1024;

  void add(Record record) {
    record.edit = _log._lastEdit + 1;
    append(_piece, record, _seed);
    writeIfMuch();
  }
  void writeIfMuch() {
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
  Placed& _placed;
  std::size_t _placedBefore;
  std::string _piece;
  bool _isWritten = true;
};

}  // namespace kite::Linux
