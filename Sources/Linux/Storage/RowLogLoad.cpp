// How the segments of a store are read.
#include "Linux/Storage/RowLog.h"

#include <algorithm>
#include <set>
#include <utility>

namespace kite::Linux {

bool RowLog::isSegment(std::string_view fileName) { return segmentOf(fileName).has_value(); }

bool RowLog::load(const std::vector<std::string>& names, const Known& known, Damages& damages) {
  auto contents = readAll(names, known, damages);
  if (!contents) return false;
  learnEdits(*contents, known, damages);
  learnLists(*contents, known);
  _loaded = *std::move(contents);
  return true;
}

std::optional<RowLog::Contents> RowLog::readAll(const std::vector<std::string>& names,
                                                const Known& known, Damages& damages) {
  std::set<std::uint64_t> numbers;
  for (const auto& name : names) {
    if (const auto number = segmentOf(name)) numbers.insert(*number);
  }
  for (const auto& name : names) {
    if (const auto index = indexOf(name); index && !numbers.contains(*index))
      _dropped.push_back(name);
  }
  Contents all;
  auto expected = known.firstSegment;
  for (const auto number : numbers) {
    if (number < known.firstSegment) {
      dropFiles(number);
      continue;
    }
    for (; expected != 0 && expected < number; ++expected) {
      damages.add(segmentName(expected), "is missing");
      // So that it is missed once.
      if (!_segments.empty()) _segments.rbegin()->second.isDamaged = true;
    }
    expected = number + 1;
    auto contents = contentsOf(number);
    if (!contents) return std::nullopt;
    auto& segment = addSegment(number);
    segment.size = contents->size;
    segment.isDamaged = contents->isDamaged;
    if (segment.isDamaged) damages.add(segmentName(number), "is damaged");
    all.emplace(number, *std::move(contents));
  }
  _nextSegment = std::max(_nextSegment, expected);
  return all;
}

// An index counts for the very file that it was made of, as far as its size tells.
std::optional<SegmentContents> RowLog::contentsOf(std::uint64_t segment) const {
  const auto file = LogFile::open(*_disk, segmentName(segment));
  if (!file) return std::nullopt;
  if (const auto index = LogFile::open(*_disk, indexName(segment))) {
    const auto bytes = index->readAll();
    auto contents = bytes ? readIndex(*bytes, _store) : std::nullopt;
    if (contents && contents->size == file->size()) return contents;
  }
  const auto bytes = file->readAll();
  return bytes ? std::optional(scanSegment(*bytes, _store)) : std::nullopt;
}

// A segment knows the last edit before it, which those before must hold, whole; the last edit of
// all is known to the witness. An edit without its end counts when one of them knows it.
void RowLog::learnEdits(Contents& contents, const Known& known, Damages& damages) {
  const auto endsTooEarly = [&](std::uint64_t number) {
    if (std::exchange(_segments[number].isDamaged, true)) return;
    damages.add(segmentName(number), "ends too early");
  };
  std::uint64_t found = 0;  // the last edit that is there, whole or not
  for (auto& [number, segment] : contents) {
    if (segment.endsInZeros) endsTooEarly(number);
    if (_segments.contains(number - 1) && segment.editBefore > found) endsTooEarly(number - 1);
    found = std::max({found, segment.editBefore, segment.lastEdit});
    if (segment.unfinished) found = std::max(found, segment.unfinished->edit);
    _lastEdit = std::max({_lastEdit, segment.editBefore, segment.lastEdit});
  }
  _lastEdit = std::max(_lastEdit, known.lastEdit);
  _areAllMissing = contents.empty() && known.lastEdit > 0;
  if (_areAllMissing) damages.add("all rows", "are missing");
  if (contents.empty()) return;
  auto& [lastNumber, last] = *contents.rbegin();
  auto& lastSegment = _segments.rbegin()->second;
  if (found < known.lastEdit) endsTooEarly(lastNumber);
  // An empty one is no loss unless others know of edits in it.
  if (last.size > 0) _active = LogFile::open(*_disk, segmentName(lastNumber));
  if (_active && last.tornAt) _active->endAt(*last.tornAt);
  for (auto& [number, segment] : contents) {
    if (!segment.unfinished) continue;
    if (segment.unfinished->edit <= _lastEdit) {
      endsTooEarly(number);
    } else {
      if (_active && number == lastNumber) _active->endAt(segment.unfinished->begin);
      segment.dropUnfinished();
    }
  }
  lastSegment.unsynced = _active;
  if (_active && _active->size() < fullSegment) _written = last;
  if (lastSegment.isDamaged) _active = nullptr;
}

// Of all lists that were begun under a key the youngest counts.
void RowLog::learnLists(const Contents& contents, const Known& known) {
  std::map<std::uint32_t, std::string> keys;
  std::map<std::uint32_t, List> lists;
  std::set<std::uint32_t> ended;
  for (const auto& [key, number] : known.numbers) keys.try_emplace(number, key);
  for (const auto& [segmentNumber, content] : contents) {
    auto& segment = _segments[segmentNumber];
    for (const auto& [kind, number, payload] : content.changes) {
      auto& list = lists.try_emplace(number, List{number}).first->second;
      if (kind == Record::Kind::listBegun) keys.emplace(number, payload);
      if (kind == Record::Kind::listEnded) ended.insert(number);
      if (kind == Record::Kind::listNote) list.note = payload;
      if (kind != Record::Kind::rowsRemoved) continue;
      list.removed.addAll(payload);
      list.next = std::max(list.next, list.removed.end());
    }
    for (const auto& row : content.rows) segment.note(row.list, row.ordinal);
    for (const auto& [number, span] : segment.spans) {
      auto& list = lists.try_emplace(number, List{number}).first->second;
      list.next = std::max(list.next, span.last + 1);
    }
  }
  if (!lists.empty()) _nextList = std::max(_nextList, lists.rbegin()->first + 1);
  for (const auto& [number, key] : keys) {
    _nextList = std::max(_nextList, number + 1);
    _lists.erase(key);
    if (ended.contains(number)) continue;
    _lists.emplace(key, std::move(lists.try_emplace(number, List{number}).first->second));
  }
}

}  // namespace kite::Linux
