#include "Linux/Storage/SegmentContents.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstring>
#include <utility>

namespace kite::Linux {

namespace {

constexpr std::string_view segmentPrefix = "rows-";
constexpr std::string_view segmentSuffix = ".log";
constexpr std::string_view indexSuffix = ".index";
constexpr std::uint64_t always = 0;  // the edit of records that need no end mark
constexpr std::size_t sizeBytes = 8;

// Entries are copied as they are in memory.
static_assert(std::endian::native == std::endian::little);
static_assert(sizeof(RowEntry) == 40);

std::optional<std::uint64_t> numberIn(std::string_view name, std::string_view suffix) {
  if (!name.starts_with(segmentPrefix) || !name.ends_with(suffix)) return std::nullopt;
  name.remove_prefix(segmentPrefix.size());
  name.remove_suffix(std::min(name.size(), suffix.size()));
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
  const bool isNumber = error == std::errc() && end == name.data() + name.size();
  return isNumber ? std::optional(number) : std::nullopt;
}

class Scan {
 public:
  explicit Scan(SegmentContents& contents) : _contents(contents) {}

  void take(const Record& record, std::uint64_t end) {
    if (record.edit != always && record.edit != _edit) begin(record, end);
    if (record.kind == Record::Kind::editEnd) return finish();
    if (record.kind == Record::Kind::row) {
      const auto size = Record::headerSize + record.payload.size();
      _contents.rows.push_back(
          {record.list, static_cast<std::uint32_t>(size), record.ordinal, end - size, record.tag});
    } else {
      _contents.changes.push_back({record.kind, record.list, std::string(record.payload)});
    }
  }

 private:
  // A later edit proves that the one before it was whole.
  void begin(const Record& record, std::uint64_t end) {
    finish();
    _edit = record.edit;
    _contents.unfinished = {.edit = _edit,
                            .begin = end - Record::headerSize - record.payload.size(),
                            .rows = _contents.rows.size(),
                            .changes = _contents.changes.size()};
  }
  void finish() {
    _contents.lastEdit = std::max(_contents.lastEdit, std::exchange(_edit, always));
    _contents.unfinished.reset();
  }

  SegmentContents& _contents;
  std::uint64_t _edit = always;
};

}  // namespace

std::string segmentName(std::uint64_t segment) {
  return std::string(segmentPrefix).append(std::to_string(segment)).append(segmentSuffix);
}

std::string indexName(std::uint64_t segment) {
  return std::string(segmentPrefix).append(std::to_string(segment)).append(indexSuffix);
}

std::optional<std::uint64_t> segmentOf(std::string_view fileName) {
  return numberIn(fileName, segmentSuffix);
}

std::optional<std::uint64_t> indexOf(std::string_view fileName) {
  return numberIn(fileName, indexSuffix);
}

void SegmentContents::dropUnfinished() {
  const auto edit = std::exchange(unfinished, std::nullopt);
  if (!edit) return;
  rows.resize(edit->rows);
  changes.resize(edit->changes);
}

SegmentContents scanSegment(std::string_view file, std::uint64_t store) {
  SegmentContents contents{.size = file.size()};
  if (const auto head = headOf(file)) contents.editBefore = contents.lastEdit = head->lastEdit;
  auto records = recordsOf(file, store);
  Scan scan(contents);
  while (const auto record = records.next()) {
    if (isWrittenTwice(record->kind) && !records.isPayloadSound()) {
      records.rejectPayload();
    } else {
      scan.take(*record, records.end());
    }
  }
  contents.isDamaged = records.isDamagedBefore();
  contents.endsInZeros = records.endsInZeros();
  if (records.isTorn()) contents.tornAt = records.end();
  return contents;
}

std::string asIndex(const SegmentContents& contents, std::uint64_t store) {
  const auto seed = seedFor(store);
  std::string file, payload;
  appendHead(file, {.store = store, .lastEdit = contents.editBefore});
  appendNumber(payload, contents.size, sizeBytes);
  payload.append(reinterpret_cast<const char*>(contents.rows.data()),
                 contents.rows.size() * sizeof(RowEntry));
  append(file,
         {.kind = Record::Kind::rowIndex,
          .edit = contents.lastEdit,
          .ordinal = contents.changes.size(),
          .payload = payload},
         seed);
  for (const auto& [kind, list, text] : contents.changes)
    append(file, {.kind = kind, .list = list, .payload = text}, seed);
  return file;
}

std::optional<SegmentContents> readIndex(std::string_view file, std::uint64_t store) {
  const auto head = headOf(file);
  auto records = recordsOf(file, store);
  const auto index = records.next();
  if (!head || head->store != store || !index || index->kind != Record::Kind::rowIndex ||
      !records.isPayloadSound() || index->payload.size() < sizeBytes)
    return std::nullopt;
  SegmentContents contents{.size = numberAt(index->payload, 0, sizeBytes),
                           .editBefore = head->lastEdit,
                           .lastEdit = index->edit};
  const auto entries = index->payload.substr(sizeBytes);
  contents.rows.resize(entries.size() / sizeof(RowEntry));
  std::memcpy(contents.rows.data(), entries.data(), contents.rows.size() * sizeof(RowEntry));
  while (const auto change = records.next()) {
    if (!records.isPayloadSound()) return std::nullopt;
    if (contents.changes.size() < index->ordinal && records.next())
      contents.changes.push_back({change->kind, change->list, std::string(change->payload)});
  }
  const bool isWhole = records.damages() == 0 && contents.changes.size() == index->ordinal;
  return isWhole ? std::optional(std::move(contents)) : std::nullopt;
}

}  // namespace kite::Linux
