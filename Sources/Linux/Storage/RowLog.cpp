#include "Linux/Storage/RowLog.h"

#include "Base/CatchingBadAlloc.h"

#include <algorithm>
#include <utility>

namespace kite::Linux {

namespace {

constexpr std::uint64_t fullSegment = 4 * 1024 * 1024;
constexpr std::uint64_t toleratedGarbage = 2 * fullSegment;
constexpr std::uint64_t mostOpenFiles = 16;

bool areAscending(const std::vector<Larder::Row>& rows, std::uint64_t first) {
  for (const auto& row : rows) {
    if (row.ordinal < first) return false;
    first = row.ordinal + 1;
  }
  return true;
}

}  // namespace

/// One edit on its way into the last segment: all of it or nothing.
class RowLog::Batch {
 public:
  /// `placed` gets the rows once they are there.
  Batch(RowLog& log, std::uint32_t list, Placed& placed)
      : _log(log),
        _file(*log._active),
        _segment(log._segments.rbegin()->second),
        _seed(seedFor(log._store)),
        _list(list),
        _begin(_file.size()),
        _placed(placed),
        _placedBefore(placed.size()) {}
  Batch(const Batch&) = delete;
  Batch& operator=(const Batch&) = delete;
  ~Batch() {
    if (_isFinished) return;
    _file.cut(_begin);
    _placed.resize(_placedBefore);
  }

  void add(Record record) {
    record.edit = _log._lastEdit + 1;
    if (record.list == 0) record.list = _list;
    append(_piece, record, _seed);
    if (_piece.size() >= pieceSize) write();
  }
  void addRow(const Record& row) {
    const auto offset = _file.size() + _piece.size();
    const auto size = static_cast<std::uint32_t>(Record::headerSize + row.payload.size());
    add(row);
    _segment.note(row.list == 0 ? _list : row.list, row.ordinal);
    _placed.push_back({row.ordinal, row.tag, {_segment.file, offset, size}});
  }
  bool finish() {
    add({.kind = Record::Kind::editEnd});
    write();
    if (!_isWritten) return false;
    ++_log._lastEdit;
    _segment.size = _file.size();
    _log._loaded.clear();
    return _isFinished = true;
  }

 private:
  static constexpr std::size_t pieceSize = 1024 * 1024;

  void write() {
    _isWritten = _isWritten && _file.append(_piece);
    _piece.clear();
  }

  RowLog& _log;
  LogFile& _file;
  Segment& _segment;
  std::uint32_t _seed;
  std::uint32_t _list;
  std::uint64_t _begin;
  Placed& _placed;
  std::size_t _placedBefore;
  std::string _piece;
  bool _isWritten = true;
  bool _isFinished = false;
};

void RowLog::Segment::note(std::uint32_t list, std::uint64_t ordinal) {
  auto& span = spans.try_emplace(list, Span{ordinal, ordinal, 0}).first->second;
  span.first = std::min(span.first, ordinal);
  span.last = std::max(span.last, ordinal);
  ++span.rows;
}

std::vector<std::string> RowLog::keys() const {
  std::vector<std::string> keys;
  for (const auto& [key, list] : _lists) keys.push_back(key);
  return keys;
}

std::uint64_t RowLog::firstSegment() const {
  return _segments.empty() ? _nextSegment : _segments.begin()->first;
}

const RowLog::List* RowLog::listOf(std::uint32_t number) const {
  for (const auto& [key, list] : _lists) {
    if (list.number == number) return &list;
  }
  return nullptr;
}

bool RowLog::isLiving(const RowEntry& row) const {
  const auto* list = listOf(row.list);
  return list && !list->removed.contains(row.ordinal);
}

RowLog::Outcome RowLog::read(std::string_view key, Larder::SavedList& list) {
  const auto found = _lists.find(key);
  if (found == _lists.end()) return Outcome::noList;
  const auto number = found->second.number;
  const auto loaded = std::exchange(_loaded, {});
  list.next = found->second.next;
  for (const auto& [segmentNumber, segment] : _segments) {
    if (!segment.spans.contains(number)) continue;
    std::optional<SegmentContents> contents;
    const auto known = loaded.find(segmentNumber);
    if (known == loaded.end()) {
      contents = contentsOf(segmentNumber);
      if (!contents) return Outcome::failed;
      if (contents->unfinished && contents->unfinished->edit > _lastEdit)
        contents->dropUnfinished();
    }
    for (const auto& row : contents ? contents->rows : known->second.rows) {
      if (row.list == number && !found->second.removed.contains(row.ordinal))
        list.rows.push_back({row.ordinal, row.tag, {segment.file, row.offset, row.size}});
    }
  }
  // Rows that were moved stand behind rows that came after them, and twice after a kill.
  const auto ordinal = &Larder::SavedRow::ordinal;
  if (!std::ranges::is_sorted(list.rows, {}, ordinal)) std::ranges::sort(list.rows, {}, ordinal);
  const auto twice = std::ranges::unique(list.rows, {}, ordinal);
  list.rows.erase(twice.begin(), twice.end());
  return Outcome::done;
}

RowLog::Outcome RowLog::edit(std::string_view key, const Larder::ListEdit& edit, Placed& placed) {
  const auto found = _lists.find(key);
  if (!edit.replacesAll && found == _lists.end()) return Outcome::noList;
  // Made before the file changes: after that nothing may go wrong.
  Lists changed;
  auto& list =
      changed.emplace(key, edit.replacesAll ? List{_nextList} : found->second).first->second;
  if (!areAscending(edit.appended, list.next)) return Outcome::noList;
  if (!edit.replacesAll && edit.removed.empty() && edit.appended.empty()) return Outcome::done;
  placed.reserve(edit.appended.size());
  if (!makeActive()) return Outcome::failed;
  Batch batch(*this, list.number, placed);
  if (edit.replacesAll) batch.add({.kind = Record::Kind::listBegun, .payload = key});
  if (!edit.removed.empty()) {
    OrdinalRanges removed;  // as far as ordinals were used
    for (const auto& [first, end] : edit.removed) removed.add({first, std::min(end, list.next)});
    const auto payload = removed.payload();
    list.removed.addAll(payload);
    batch.add({.kind = Record::Kind::rowsRemoved, .payload = payload});
  }
  std::string text;
  for (const auto& row : edit.appended) {
    text.clear();
    row.text->appendTo(text);
    batch.addRow(
        {.kind = Record::Kind::row, .ordinal = row.ordinal, .tag = row.tag, .payload = text});
    list.next = row.ordinal + 1;
  }
  if (!batch.finish()) return Outcome::failed;
  if (edit.replacesAll) ++_nextList;
  if (found != _lists.end()) {
    found->second = std::move(list);
  } else {
    _lists.merge(changed);
  }
  dropFinished();
  catchingBadAlloc([&] { compact(placed); });
  return Outcome::done;
}

bool RowLog::end(std::string_view key) {
  const auto found = _lists.find(key);
  if (found == _lists.end()) return true;
  if (!makeActive()) return false;
  Placed none;
  Batch batch(*this, found->second.number, none);
  batch.add({.kind = Record::Kind::listEnded});
  if (!batch.finish()) return false;
  _lists.erase(found);
  dropFinished();
  return true;
}

// Remains of an edit that failed would count once another edit stands behind them.
bool RowLog::makeActive() {
  if (_active && !_active->cutRemains()) return false;
  return (_active && _active->size() < fullSegment) || startSegment();
}

// The index of the segment before spares the next start to read it. Without it that start reads.
bool RowLog::startSegment() {
  if (_active) catchingBadAlloc([&] { writeIndex(_segments.rbegin()->first); });
  std::string contents;
  appendHead(contents, {.store = _store, .lastEdit = _lastEdit});
  for (const auto& [key, list] : _lists)
    append(contents, {.kind = Record::Kind::listBegun, .list = list.number, .payload = key},
           seedFor(_store));
  std::shared_ptr<LogFile> fresh = LogFile::make(*_disk, segmentName(_nextSegment), contents);
  if (!fresh) return false;
  auto& segment = addSegment(_nextSegment);
  segment.size = contents.size();
  _active = std::move(fresh);
  segment.unsynced = _active;
  ++_nextSegment;
  return true;
}

void RowLog::writeIndex(std::uint64_t segment) {
  const auto contents = contentsOf(segment);
  if (contents) LogFile::make(*_disk, indexName(segment), indexOf(*contents, _store));
}

// The last ones stay open, so that a folder that is taken away costs no event.
RowLog::Segment& RowLog::addSegment(std::uint64_t number) {
  auto& segment = _segments[number];
  segment.file = std::make_shared<SegmentFile>(_disk, segmentName(number), _store, _tell);
  segment.file->keepOpen();
  if (const auto old = _segments.find(number - mostOpenFiles); old != _segments.end())
    old->second.file->close();
  return segment;
}

std::uint64_t RowLog::livingRows(const Segment& segment) const {
  std::uint64_t living = 0;
  for (const auto& [number, span] : segment.spans) {
    const auto* list = listOf(number);
    if (!list) continue;
    const auto removed = list->removed.countIn({span.first, span.last + 1});
    if (removed == span.last - span.first + 1) continue;
    // Ordinals of rows that damage took were never removed.
    living += std::max<std::uint64_t>(1, span.rows - std::min(span.rows, removed));
  }
  return living;
}

// Only from the front: the records of what was removed or ended must outlive what they concern.
void RowLog::dropFinished() {
  while (_segments.size() > 1 && livingRows(_segments.begin()->second) == 0)
    drop(_segments.begin()->first);
}

void RowLog::compact(Placed& placed) {
  std::uint64_t all = 0, garbage = 0;
  for (const auto& [number, segment] : _segments) {
    std::uint64_t rows = 0;
    for (const auto& [list, span] : segment.spans) rows += span.rows;
    all += segment.size;
    if (rows > 0) garbage += segment.size / rows * (rows - std::min(rows, livingRows(segment)));
  }
  if (garbage > toleratedGarbage && garbage > all / 2) move(_segments.begin()->first, placed);
}

void RowLog::mend() {
  if (_active && !_active->cutRemains()) return;
  // A new segment knows the edits that are lost, so that they are told once.
  if (std::exchange(_areAllMissing, false)) startSegment();
  std::uint64_t end = 0;  // of the damaged ones
  for (const auto& [number, segment] : _segments) {
    if (segment.isDamaged) end = number + 1;
  }
  Placed placed;
  while (firstSegment() < end) {
    if (!move(firstSegment(), placed)) return;
  }
  dropFinished();
}

// What the segment says of removals, too, for it may concern rows that stay.
bool RowLog::move(std::uint64_t number, Placed& placed) {
  auto contents = contentsOf(number);
  if (!contents) return false;
  const auto file = _segments[number].file;
  if (number == _segments.rbegin()->first) _active = nullptr;
  if (!makeActive()) return false;
  Batch batch(*this, 0, placed);
  for (const auto& [key, list] : _lists)
    batch.add({.kind = Record::Kind::rowsRemoved,
               .list = list.number,
               .payload = list.removed.payload()});
  auto& rows = contents->rows;
  std::erase_if(rows, [this](const RowEntry& row) { return !isLiving(row); });
  std::vector<Larder::RowPlace> places;
  for (const auto& row : rows) places.push_back({nullptr, row.offset, row.size});
  auto row = rows.begin();
  const auto error = file->read(places, [&](std::optional<std::string_view> text) {
    const auto& entry = *row++;
    if (!text) return;
    batch.addRow({.kind = Record::Kind::row,
                  .list = entry.list,
                  .ordinal = entry.ordinal,
                  .tag = entry.tag,
                  .payload = *text});
  });
  if (error || !batch.finish()) return false;
  if (!_active->sync() || !_disk->sync()) return false;
  drop(number);
  return true;
}

// Whoever holds places in it goes on reading.
void RowLog::drop(std::uint64_t segment) {
  const auto found = _segments.find(segment);
  if (found->second.file.use_count() > 1) found->second.file->keepOpen();
  _segments.erase(found);
  _dropped.push_back(segment);
}

void RowLog::removeDropped() {
  for (const auto segment : _dropped) {
    _disk->remove(segmentName(segment));
    _disk->remove(indexName(segment));
  }
  _dropped.clear();
}

std::vector<std::shared_ptr<LogFile>> RowLog::unsynced() const {
  std::vector<std::shared_ptr<LogFile>> files;
  for (const auto& [number, segment] : _segments) {
    if (segment.unsynced) files.push_back(segment.unsynced);
  }
  return files;
}

void RowLog::wereSynced(const std::vector<std::shared_ptr<LogFile>>& files) {
  for (auto& [number, segment] : _segments) {
    const bool isSynced = std::ranges::count(files, segment.unsynced) > 0;
    if (isSynced && segment.unsynced != _active) segment.unsynced = nullptr;
  }
}

}  // namespace kite::Linux
