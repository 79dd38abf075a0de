#include "Linux/Storage/RowLog.h"

#include <algorithm>
#include <charconv>
#include <utility>

namespace kite::Linux {

namespace {

constexpr std::uint64_t fullSegment = 4 * 1024 * 1024;
constexpr std::uint64_t toleratedGarbage = 2 * fullSegment;
constexpr std::uint64_t always = 0;  // the edit of records that need no end mark
constexpr std::string_view prefix = "rows-";
constexpr std::string_view suffix = ".log";

std::string nameOf(std::uint64_t segment) {
  return std::string(prefix) + std::to_string(segment) + std::string(suffix);
}

std::optional<std::uint64_t> segmentOf(std::string_view name) {
  if (!name.starts_with(prefix) || !name.ends_with(suffix)) return std::nullopt;
  const auto digits = name.substr(prefix.size(), name.size() - prefix.size() - suffix.size());
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  const bool isNumber = error == std::errc() && end == digits.data() + digits.size();
  return isNumber ? std::optional(number) : std::nullopt;
}

/// The ranges as far as ordinals were used.
std::string payloadOf(const std::vector<Larder::OrdinalRange>& ranges, std::uint64_t next) {
  std::string payload;
  for (const auto& [first, end] : ranges) {
    appendNumber(payload, first, 8);
    appendNumber(payload, std::min(end, next), 8);
  }
  return payload;
}

void addRanges(OrdinalRanges& ranges, std::string_view payload) {
  for (std::size_t at = 0; at + 16 <= payload.size(); at += 16)
    ranges.add({numberAt(payload, at, 8), numberAt(payload, at + 8, 8)});
}

bool areAscending(const std::vector<Larder::Row>& rows, std::uint64_t first) {
  for (const auto& row : rows) {
    if (row.ordinal < first) return false;
    first = row.ordinal + 1;
  }
  return true;
}

}  // namespace

/// One edit on its way into a file: all of it or nothing.
class RowLog::Batch {
 public:
  Batch(LogFile& file, std::uint64_t store, std::uint64_t edit, std::uint32_t list)
      : _file(file), _seed(seedFor(store)), _edit(edit), _list(list), _begin(file.size()) {}
  Batch(const Batch&) = delete;
  Batch& operator=(const Batch&) = delete;
  ~Batch() {
    if (!_isFinished) _file.cut(_begin);
  }

  void add(Record record) {
    constexpr std::size_t pieceSize = 1024 * 1024;
    record.edit = _edit;
    if (record.list == 0) record.list = _list;
    append(_piece, record, _seed);
    if (_piece.size() >= pieceSize) write();
  }
  bool finish() {
    add({.kind = Record::Kind::editEnd});
    write();
    return _isFinished = _isWritten;
  }

 private:
  void write() {
    _isWritten = _isWritten && _file.append(_piece);
    _piece.clear();
  }

  LogFile& _file;
  std::uint32_t _seed;
  std::uint64_t _edit;
  std::uint32_t _list;
  std::uint64_t _begin;
  std::string _piece;
  bool _isWritten = true;
  bool _isFinished = false;
};

/// Finds out, record by record, what the segments of a store hold.
class RowLog::Replay {
 public:
  explicit Replay(RowLog& log) : _log(log) {}

  void begin(std::uint64_t segment, const std::optional<Head>& head) {
    _segment = segment;
    if (head) _last = std::max(_last, head->lastEdit);
  }
  /// A record of an edit counts when the edit's end, or a record of a later one, was seen.
  void take(const Record& record, std::uint64_t begin) {
    if (record.edit == always) return count(record, _segment);
    if (record.edit != _edit) {
      finish();
      _edit = record.edit;
      _last = std::max(_last, _edit);
      _begin = begin;
    }
    if (record.kind == Record::Kind::editEnd) return finish();
    _waiting.push_back({_segment, record});
  }
  void finish() {
    for (const auto& [segment, record] : _waiting) count(record, segment);
    _waiting.clear();
  }

  bool isUnfinished() const { return !_waiting.empty(); }
  /// That may be unfinished.
  std::uint64_t edit() const { return _edit; }
  /// That the files know of.
  std::uint64_t lastEdit() const { return _last; }
  /// Where the last edit begins.
  std::uint64_t beginOfEdit() const { return _begin; }

  /// Of all lists that were begun under a key the youngest counts.
  Lists lists(const Known& known) && {
    for (const auto& [key, number] : known.numbers) _keys.try_emplace(number, key);
    Lists lists;
    for (const auto& [number, key] : _keys) {
      lists.erase(key);
      if (_ended.contains(number)) continue;
      auto list = std::move(_lists.try_emplace(number, List{number}).first->second);
      lists.emplace(key, std::move(list));
    }
    return lists;
  }

 private:
  struct Waiting {
    std::uint64_t segment;
    Record record;
  };

  void count(const Record& record, std::uint64_t segment) {
    _log._nextList = std::max(_log._nextList, record.list + 1);
    if (record.kind == Record::Kind::listBegun) _keys.emplace(record.list, record.payload);
    if (record.kind == Record::Kind::listEnded) _ended.emplace(record.list, true);
    auto& list = _lists.try_emplace(record.list, List{record.list}).first->second;
    if (record.kind == Record::Kind::rowsRemoved) {
      addRanges(list.removed, record.payload);
      list.next = std::max(list.next, list.removed.end());
    }
    if (record.kind == Record::Kind::row) {
      _log.note(_log._segments[segment], record);
      list.next = std::max(list.next, record.ordinal + 1);
    }
  }

  RowLog& _log;
  std::uint64_t _segment = 0;
  std::uint64_t _edit = always;
  std::uint64_t _last = 0;
  std::uint64_t _begin = 0;
  std::vector<Waiting> _waiting;
  std::map<std::uint32_t, std::string> _keys;
  std::map<std::uint32_t, bool> _ended;
  std::map<std::uint32_t, List> _lists;
};

bool RowLog::isSegment(std::string_view fileName) { return segmentOf(fileName).has_value(); }

bool RowLog::load(const std::vector<std::string>& names, const Known& known, Damages& damages) {
  std::vector<std::uint64_t> numbers;
  for (const auto& name : names) {
    if (const auto number = segmentOf(name)) numbers.push_back(*number);
  }
  std::ranges::sort(numbers);
  Replay replay(*this);
  std::string bytes, before;  // records that wait may be in the file before
  auto expected = known.firstSegment;
  for (const auto number : numbers) {
    if (number < known.firstSegment) {
      _dropped.push_back(number);
      continue;
    }
    for (; expected != 0 && expected < number; ++expected) {
      damages.add(nameOf(expected), "is missing");
      // So that it is missed once.
      if (!_segments.empty()) _segments.rbegin()->second.isDamaged = true;
    }
    expected = number + 1;
    auto read = bytesOf(number);
    if (!read) return false;
    before = std::exchange(bytes, *std::move(read));
    checkEndBefore(number, headOf(bytes), replay, damages);
    loadSegment(number, bytes, replay, damages);
  }
  _nextSegment = std::max(_nextSegment, expected);
  finish(replay, known, damages);
  return true;
}

// A segment knows the last edit before it, which the one before it must hold, whole.
void RowLog::checkEndBefore(std::uint64_t number, const std::optional<Head>& head,
                            const Replay& replay, Damages& damages) {
  const auto before = _segments.find(number - 1);
  if (before == _segments.end() || before->second.isDamaged) return;
  if (!replay.isUnfinished() && (!head || head->lastEdit <= replay.lastEdit())) return;
  damages.add(nameOf(number - 1), "ends too early");
  before->second.isDamaged = true;
}

void RowLog::loadSegment(std::uint64_t number, std::string_view bytes, Replay& replay,
                         Damages& damages) {
  auto& segment = _segments[number];
  segment.size = bytes.size();
  replay.begin(number, headOf(bytes));
  auto records = recordsOf(bytes, _store);
  auto begin = records.end();
  while (const auto record = records.next()) {
    const bool isSound = !isWrittenTwice(record->kind) || records.isPayloadSound();
    if (isSound) replay.take(*record, begin);
    if (!isSound) records.rejectPayload();
    begin = records.end();
  }
  segment.isDamaged = records.damages() > 0;
  if (segment.isDamaged) damages.add(nameOf(number), "is damaged");
  // An empty one is no loss unless others know of edits in it.
  _active = bytes.empty() ? nullptr : LogFile::open(_disk, nameOf(number));
  if (_active && records.isTorn()) _active->endAt(records.end());
}

void RowLog::finish(Replay& replay, const Known& known, Damages& damages) {
  _lastEdit = std::max(replay.lastEdit(), known.lastEdit);
  const bool isLastUnknown = replay.lastEdit() < known.lastEdit;
  const bool isLastCut = replay.isUnfinished() && replay.edit() <= known.lastEdit;
  _areAllMissing = isLastUnknown && _segments.empty();
  if (_areAllMissing) {
    damages.add("all rows", "are missing");
  } else if (isLastUnknown || isLastCut) {
    damages.add(nameOf(_nextSegment - 1), "ends too early");
    _segments.rbegin()->second.isDamaged = true;
  }
  if (isLastCut) {
    replay.finish();
  } else if (replay.isUnfinished()) {
    _unfinishedEdit = replay.edit();
    if (_active) _active->endAt(replay.beginOfEdit());
  }
  _lists = std::move(replay).lists(known);
  if (_segments.empty()) return;
  auto& last = _segments.rbegin()->second;
  last.unsynced = _active;
  if (last.isDamaged) _active = nullptr;
}

void RowLog::mend() {
  if (_active && !_active->cutRemains()) return;
  // A new segment knows the edits that are lost, so that they are told once.
  if (std::exchange(_areAllMissing, false)) startSegment();
  std::uint64_t end = 0;  // of the damaged ones
  for (const auto& [number, segment] : _segments) {
    if (segment.isDamaged) end = number + 1;
  }
  while (firstSegment() < end) {
    if (!move(firstSegment())) return;
  }
  dropFinished();
}

std::vector<std::string> RowLog::keys() const {
  std::vector<std::string> keys;
  for (const auto& [key, list] : _lists) keys.push_back(key);
  return keys;
}

std::uint64_t RowLog::firstSegment() const {
  return _segments.empty() ? _nextSegment : _segments.begin()->first;
}

std::optional<std::string> RowLog::bytesOf(std::uint64_t segment) const {
  const auto file = LogFile::open(_disk, nameOf(segment));
  return file ? file->readAll() : std::nullopt;
}

const RowLog::List* RowLog::listOf(std::uint32_t number) const {
  for (const auto& [key, list] : _lists) {
    if (list.number == number) return &list;
  }
  return nullptr;
}

/// `take(record, isSound)` of every row that belongs to a list and was not removed.
template <class Take>
void RowLog::eachLivingRow(std::string_view bytes, Take take) const {
  auto records = recordsOf(bytes, _store);
  while (const auto record = records.next()) {
    const bool counts = record->kind == Record::Kind::row &&
                        (record->edit != _unfinishedEdit || _unfinishedEdit == 0);
    const auto* list = counts ? listOf(record->list) : nullptr;
    if (list && !list->removed.contains(record->ordinal)) take(*record, records.isPayloadSound());
  }
}

// Rows that were moved stand behind rows that came after them.
bool RowLog::isInOrder(std::uint32_t list) const {
  std::uint64_t next = 0;
  for (const auto& [number, segment] : _segments) {
    const auto span = segment.spans.find(list);
    if (span == segment.spans.end()) continue;
    if (span->second.first < next || !span->second.isAscending) return false;
    next = span->second.last + 1;
  }
  return true;
}

RowLog::Outcome RowLog::read(std::string_view key, Larder::ListReader& reader,
                             std::size_t& damaged) {
  const auto found = _lists.find(key);
  if (found == _lists.end()) return Outcome::noList;
  const auto& list = found->second;
  const bool isInOrder = this->isInOrder(list.number);
  std::map<std::uint64_t, std::string> sorted;
  reader.begin(list.next);
  for (auto& entry : _segments) {
    auto& segment = entry.second;
    if (!segment.spans.contains(list.number)) continue;
    const auto bytes = bytesOf(entry.first);
    if (!bytes) return Outcome::failed;
    eachLivingRow(*bytes, [&](const Record& row, bool isSound) {
      if (row.list != list.number) return;
      if (!isSound) {
        segment.isDamaged = true;
        ++damaged;
      } else if (isInOrder) {
        reader.take(row.ordinal, row.payload);
      } else {
        sorted.insert_or_assign(row.ordinal, std::string(row.payload));
      }
    });
  }
  for (const auto& [ordinal, text] : sorted) reader.take(ordinal, text);
  return Outcome::done;
}

RowLog::Outcome RowLog::edit(std::string_view key, const Larder::ListEdit& edit) {
  const auto found = _lists.find(key);
  if (!edit.replacesAll && found == _lists.end()) return Outcome::noList;
  // Made before the file changes: after that nothing may go wrong.
  Lists changed;
  auto& list =
      changed.emplace(key, edit.replacesAll ? List{_nextList} : found->second).first->second;
  if (!areAscending(edit.appended, list.next)) return Outcome::noList;
  if (!makeActive()) return Outcome::failed;
  auto& segment = _segments.rbegin()->second;
  Batch batch(*_active, _store, _lastEdit + 1, list.number);
  if (edit.replacesAll) batch.add({.kind = Record::Kind::listBegun, .payload = key});
  if (!edit.removed.empty()) {
    const auto payload = payloadOf(edit.removed, list.next);
    addRanges(list.removed, payload);
    batch.add({.kind = Record::Kind::rowsRemoved, .payload = payload});
  }
  std::string text;
  for (const auto& row : edit.appended) {
    text.clear();
    row.segment->appendTo(text);
    const Record record{
        .kind = Record::Kind::row, .list = list.number, .ordinal = row.ordinal, .payload = text};
    note(segment, record);
    batch.add(record);
    list.next = row.ordinal + 1;
  }
  if (!batch.finish()) return Outcome::failed;
  ++_lastEdit;
  segment.size = _active->size();
  if (edit.replacesAll) ++_nextList;
  if (found != _lists.end()) {
    found->second = std::move(list);
  } else {
    _lists.merge(changed);
  }
  dropFinished();
  compact();
  return Outcome::done;
}

bool RowLog::end(std::string_view key) {
  const auto found = _lists.find(key);
  if (found == _lists.end()) return true;
  if (!makeActive()) return false;
  Batch batch(*_active, _store, _lastEdit + 1, found->second.number);
  batch.add({.kind = Record::Kind::listEnded});
  if (!batch.finish()) return false;
  ++_lastEdit;
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
  for (const auto& [key, list] : _lists)
    append(contents,
           {.kind = Record::Kind::listBegun, .list = list.number, .edit = always, .payload = key},
           seedFor(_store));
  std::shared_ptr<LogFile> fresh = LogFile::make(_disk, nameOf(_nextSegment), contents);
  if (!fresh) return false;
  auto& segment = _segments[_nextSegment];
  segment.size = contents.size();
  _active = std::move(fresh);
  segment.unsynced = _active;
  ++_nextSegment;
  return true;
}

void RowLog::note(Segment& segment, const Record& row) {
  const auto ordinal = row.ordinal;
  auto& span = segment.spans.try_emplace(row.list, Span{ordinal, ordinal, 0, true}).first->second;
  span.isAscending = span.isAscending && (span.rows == 0 || ordinal > span.last);
  span.first = std::min(span.first, ordinal);
  span.last = std::max(span.last, ordinal);
  ++span.rows;
}

std::uint64_t RowLog::livingRows(const Segment& segment) const {
  std::uint64_t living = 0;
  for (const auto& [number, span] : segment.spans) {
    const auto* list = listOf(number);
    if (!list) continue;
    const auto ordinals = span.last - span.first + 1;
    const auto removed = list->removed.countIn({span.first, span.last + 1});
    // Ordinals of rows that damage took were never removed.
    living += removed == ordinals
                  ? 0
                  : std::max<std::uint64_t>(1, span.rows - std::min(span.rows, removed));
  }
  return living;
}

// Only from the front: the records of what was removed or ended must outlive what they concern.
void RowLog::dropFinished() {
  while (_segments.size() > 1 && livingRows(_segments.begin()->second) == 0)
    drop(_segments.begin()->first);
}

void RowLog::compact() {
  std::uint64_t all = 0, garbage = 0;
  for (const auto& [number, segment] : _segments) {
    std::uint64_t rows = 0;
    for (const auto& [list, span] : segment.spans) rows += span.rows;
    all += segment.size;
    if (rows > 0) garbage += segment.size / rows * (rows - std::min(rows, livingRows(segment)));
  }
  if (garbage > toleratedGarbage && garbage > all / 2) move(_segments.begin()->first);
}

// What the segment says of removals, too, for it may concern rows that stay.
bool RowLog::move(std::uint64_t number) {
  const auto bytes = bytesOf(number);
  if (!bytes) return false;
  if (number == _segments.rbegin()->first) _active = nullptr;
  if (!makeActive()) return false;
  auto& target = _segments.rbegin()->second;
  Batch batch(*_active, _store, _lastEdit + 1, 0);
  for (const auto& [key, list] : _lists)
    batch.add({.kind = Record::Kind::rowsRemoved,
               .list = list.number,
               .payload = payloadOf(list.removed.all(), list.next)});
  eachLivingRow(*bytes, [&](const Record& row, bool isSound) {
    if (!isSound) return;
    note(target, row);
    batch.add(row);
  });
  if (!batch.finish()) return false;
  ++_lastEdit;
  target.size = _active->size();
  if (!_active->sync() || !_disk.sync()) return false;
  drop(number);
  return true;
}

void RowLog::drop(std::uint64_t segment) {
  _dropped.push_back(segment);
  _segments.erase(segment);
}

void RowLog::removeDropped() {
  for (const auto segment : _dropped) _disk.remove(nameOf(segment));
  _dropped.clear();
}

std::vector<std::shared_ptr<LogFile>> RowLog::takeUnsynced() {
  std::vector<std::shared_ptr<LogFile>> files;
  for (const auto& [number, segment] : _segments) {
    if (segment.unsynced) files.push_back(segment.unsynced);
  }
  for (auto& [number, segment] : _segments) {
    if (segment.unsynced != _active) segment.unsynced = nullptr;
  }
  return files;
}

}  // namespace kite::Linux
