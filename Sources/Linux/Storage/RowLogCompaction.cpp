// How segments are dropped, and what lives in them moved.
#include "Linux/Storage/RowLogBatch.h"

#include <algorithm>
#include <utility>

namespace kite::Linux {

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
  if (garbage > 2 * fullSegment && garbage > all / 2) move(_segments.begin()->first, placed);
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
    batch.addChange({.kind = Record::Kind::rowsRemoved,
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
    batch.addRow(
        {.kind = Record::Kind::row, .list = entry.list, .ordinal = entry.ordinal, .tag = entry.tag},
        [&](std::string& out) { out += *text; });
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
  dropFiles(segment);
}

void RowLog::dropFiles(std::uint64_t segment) {
  _dropped.push_back(segmentName(segment));
  _dropped.push_back(indexName(segment));
}

void RowLog::removeDropped() {
  for (const auto& name : _dropped) _disk->remove(name);
  _dropped.clear();
}

}  // namespace kite::Linux
