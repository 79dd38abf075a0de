#include "Linux/Storage/RowLog.h"

#include "Base/CatchingBadAlloc.h"
#include "Linux/Storage/RowLogBatch.h"

#include <algorithm>
#include <utility>

namespace kite::Linux {

namespace {

constexpr std::uint64_t mostOpenFiles = 16;

bool areAscending(const std::vector<Larder::Row>& rows, std::uint64_t first) {
  for (const auto& row : rows) {
    if (row.ordinal < first) return false;
    first = row.ordinal + 1;
  }
  return true;
}

std::size_t textBytes(const std::vector<Larder::Row>& rows) {
  std::size_t bytes = 0;
  for (const auto& row : rows) bytes += row.text->size();
  return bytes;
}

}  // namespace

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

std::uint64_t RowLog::rowsOf(std::uint32_t list) const {
  std::uint64_t rows = 0;
  for (const auto& [number, segment] : _segments) {
    if (const auto span = segment.spans.find(list); span != segment.spans.end())
      rows += span->second.rows;
  }
  return rows;
}

RowLog::Outcome RowLog::read(std::string_view key, Larder::SavedList& list) {
  const auto found = _lists.find(key);
  if (found == _lists.end()) return Outcome::noList;
  const auto number = found->second.number;
  const auto loaded = std::exchange(_loaded, {});
  list.next = found->second.next;
  list.note = found->second.note;
  list.rows.reserve(rowsOf(number));
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
  const auto isSame = [](const auto& a, const auto& b) { return a.ordinal == b.ordinal; };
  list.rows.erase(std::unique(list.rows.begin(), list.rows.end(), isSame), list.rows.end());
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
  if (!edit.replacesAll && edit.removed.empty() && edit.appended.empty() && edit.note.empty())
    return Outcome::done;
  placed.reserve(edit.appended.size());
  if (!makeActive()) return Outcome::failed;
  Batch batch(*this, list.number, placed);
  if (edit.replacesAll) batch.addChange({.kind = Record::Kind::listBegun, .payload = key});
  if (!edit.removed.empty()) {
    OrdinalRanges removed;  // as far as ordinals were used
    for (const auto& [first, end] : edit.removed) removed.add({first, std::min(end, list.next)});
    const auto payload = removed.payload();
    list.removed.addAll(payload);
    batch.addChange({.kind = Record::Kind::rowsRemoved, .payload = payload});
  }
  batch.expectRows(edit.appended.size(), textBytes(edit.appended));
  for (const auto& row : edit.appended) {
    batch.addRow({.kind = Record::Kind::row, .ordinal = row.ordinal, .tag = row.tag},
                 [&](std::string& out) { row.text->appendTo(out); });
    list.next = row.ordinal + 1;
  }
  if (!edit.note.empty()) {
    list.note = edit.note;
    batch.addChange({.kind = Record::Kind::listNote, .payload = edit.note});
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
  batch.addChange({.kind = Record::Kind::listEnded});
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

bool RowLog::startSegment() {
  std::string contents;
  appendHead(contents, {.store = _store, .lastEdit = _lastEdit});
  const auto seed = seedFor(_store);
  // What earlier segments say of it goes with them.
  for (const auto& [key, list] : _lists) {
    append(contents, {.kind = Record::Kind::listBegun, .list = list.number, .payload = key}, seed);
    if (!list.note.empty())
      append(contents, {.kind = Record::Kind::listNote, .list = list.number, .payload = list.note},
             seed);
  }
  std::shared_ptr<LogFile> fresh = LogFile::make(*_disk, segmentName(_nextSegment), contents);
  if (!fresh) return false;
  auto& segment = addSegment(_nextSegment);
  segment.size = contents.size();
  _written = scanSegment(contents, _store);
  _active = std::move(fresh);
  segment.unsynced = _active;
  ++_nextSegment;
  return true;
}

// Spares the next start to read the segment. Without it that start reads.
void RowLog::writeIndex() {
  _written.size = _active->size();
  _written.lastEdit = _lastEdit;
  LogFile::make(*_disk, indexName(_segments.rbegin()->first), asIndex(_written, _store));
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

std::vector<std::shared_ptr<LogFile>> RowLog::unsynced() {
  std::vector<std::shared_ptr<LogFile>> files;
  for (auto& [number, segment] : _segments) {
    if (!segment.unsynced) continue;
    if (!segment.unsynced->isSynced()) {
      files.push_back(segment.unsynced);
    } else if (segment.unsynced != _active) {
      segment.unsynced = nullptr;
    }
  }
  return files;
}

}  // namespace kite::Linux
