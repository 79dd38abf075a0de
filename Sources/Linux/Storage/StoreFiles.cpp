#include "Linux/Storage/StoreFiles.h"

namespace kite::Linux {

namespace {

constexpr std::uint32_t headSeed = 0;
constexpr std::size_t storeSize = 8;

}  // namespace

std::string Damages::text() const {
  std::string text;
  for (const auto& found : _found) text += (text.empty() ? "" : ", ") + found;
  return text;
}

void appendHead(std::string& out, const Head& head) {
  std::string payload;
  appendNumber(payload, head.store, storeSize);
  append(out, {.kind = Record::Kind::head, .edit = head.lastEdit, .payload = payload}, headSeed);
}

std::optional<Head> headOf(std::string_view file) {
  RecordScanner records(file.substr(0, Head::size), headSeed);
  while (const auto record = records.next()) {
    if (record->kind == Record::Kind::head && record->payload.size() == storeSize &&
        records.isPayloadSound())
      return Head{.store = numberAt(record->payload, 0, storeSize), .lastEdit = record->edit};
  }
  return std::nullopt;
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
  return true;
}

bool LogFile::cut(std::uint64_t size) {
  _size = size;
  _endsWithRemains = !_file->cut(size);
  return !_endsWithRemains;
}

}  // namespace kite::Linux
