#include "Linux/Storage/StoreFiles.h"

namespace kite::Linux {

namespace {

constexpr std::uint32_t headSeed = 0;
constexpr std::size_t numberSize = 8;

/// The first of the two copies at the beginning of a file that is whole.
std::optional<Record> wholeHead(std::string_view file, std::size_t payloadSize) {
  RecordScanner records(file.substr(0, 2 * (Record::headerSize + payloadSize)), headSeed);
  while (const auto record = records.next()) {
    if (record->kind == Record::Kind::head && record->payload.size() == payloadSize &&
        records.isPayloadSound())
      return record;
  }
  return std::nullopt;
}

}  // namespace

std::string Damages::text() const {
  std::string text;
  for (const auto& found : _found) text += (text.empty() ? "" : ", ") + found;
  return text;
}

void appendHead(std::string& out, const Head& head) {
  std::string payload;
  appendNumber(payload, head.store, numberSize);
  append(out, {.kind = Record::Kind::head, .edit = head.lastEdit, .payload = payload}, headSeed);
}

std::optional<Head> headOf(std::string_view file) {
  const auto record = wholeHead(file, numberSize);
  if (!record) return std::nullopt;
  return Head{.store = numberAt(record->payload, 0, numberSize), .lastEdit = record->edit};
}

void appendWitness(std::string& out, const Witness& witness) {
  std::string payload;
  for (const auto number :
       {witness.store, witness.lastValue, witness.lastEdit, witness.firstSegment})
    appendNumber(payload, number, numberSize);
  append(out, {.kind = Record::Kind::head, .payload = payload}, headSeed);
}

std::optional<Witness> witnessIn(std::string_view file) {
  const auto record = wholeHead(file, 4 * numberSize);
  if (!record) return std::nullopt;
  const auto number = [&](std::size_t i) {
    return numberAt(record->payload, i * numberSize, numberSize);
  };
  return Witness{number(0), number(1), number(2), number(3)};
}

RecordScanner recordsOf(std::string_view file, std::uint64_t store) {
  return {file, seedFor(store), headOf(file) ? Head::size : 0};
}

std::unique_ptr<LogFile> LogFile::open(Disk& disk, const std::string& name) {
  auto file = disk.open(name);
  const auto size = file ? file->size() : std::nullopt;
  if (!size) return nullptr;
  return std::unique_ptr<LogFile>(new LogFile(std::move(file), *size));
}

std::unique_ptr<LogFile> LogFile::make(Disk& disk, const std::string& name,
                                       std::string_view contents, Sync sync) {
  const auto fresh = name + ".new";
  auto file = disk.make(fresh);
  if (!file || !file->write(0, contents) || (sync == Sync::yes && !file->sync()) ||
      !disk.rename(fresh, name))
    return nullptr;
  return std::unique_ptr<LogFile>(new LogFile(std::move(file), contents.size()));
}

bool LogFile::append(std::string_view bytes) {
  if (!cutRemains()) return false;
  if (!_file->write(_size, bytes)) {
    _endsWithRemains = true;
    cut(_size);
    return false;
  }
  _size += bytes.size();
  ++_changes;
  return true;
}

bool LogFile::cut(std::uint64_t size) {
  _size = size;
  _endsWithRemains = !_file->cut(size);
  ++_changes;
  return !_endsWithRemains;
}

// Even a sync of a file that has not changed waits for the device.
bool LogFile::sync() {
  const auto changes = _changes.load();
  if (_synced == changes) return true;
  if (!_file->sync()) return false;
  _synced = changes;
  return true;
}

}  // namespace kite::Linux
