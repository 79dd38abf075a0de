#include "Linux/Storage/ValueLog.h"

#include <algorithm>
#include <utility>

namespace kite::Linux {

namespace {

constexpr std::uint64_t grownSize = 64 * 1024;
constexpr std::size_t kindSize = 1;
constexpr std::size_t keyLengthSize = 4;
constexpr std::size_t beforeKey = kindSize + keyLengthSize;

std::string payloadOf(std::string_view key, const SavedValue& value) {
  std::string payload;
  payload.reserve(beforeKey + key.size() + value.bytes.size());
  appendNumber(payload, static_cast<std::uint8_t>(value.kind), kindSize);
  appendNumber(payload, key.size(), keyLengthSize);
  payload.append(key).append(value.bytes);
  return payload;
}

std::string_view keyIn(std::string_view payload) {
  const auto size = payload.size() < beforeKey ? 0 : numberAt(payload, kindSize, keyLengthSize);
  return payload.substr(std::min(payload.size(), beforeKey), size);
}

ValueKind kindIn(std::string_view payload) { return static_cast<ValueKind>(payload.front()); }

std::size_t sizeOf(const Record& record) { return Record::headerSize + record.payload.size(); }

SavedValue valueIn(std::string_view payload) {
  return {.kind = kindIn(payload),
          .bytes = std::string(payload.substr(beforeKey + keyIn(payload).size()))};
}

}  // namespace

std::unique_ptr<ValueLog> ValueLog::make(Disk& disk, std::uint64_t store) {
  std::string head;
  appendHead(head, {.store = store, .lastEdit = 0});
  auto file = LogFile::make(disk, fileName, head);
  if (!file) return nullptr;
  return std::unique_ptr<ValueLog>(new ValueLog(disk, store, std::move(file)));
}

std::unique_ptr<ValueLog> ValueLog::none(Disk& disk) {
  return std::unique_ptr<ValueLog>(new ValueLog(disk, 0, nullptr));
}

std::unique_ptr<ValueLog> ValueLog::load(Disk& disk, std::uint64_t store, std::uint64_t lastChange,
                                         Damages& damages) {
  auto file = LogFile::open(disk, fileName);
  const auto bytes = file ? file->readAll() : std::nullopt;
  if (!bytes) return nullptr;
  std::unique_ptr<ValueLog> log(new ValueLog(disk, store, std::move(file)));
  log->read(*bytes, lastChange, damages);
  return log;
}

void ValueLog::read(std::string_view file, std::uint64_t lastChange, Damages& damages) {
  if (const auto head = headOf(file)) _lastChange = head->lastEdit;
  auto records = recordsOf(file, _store);
  while (const auto record = records.next()) {
    if (!records.isPayloadSound()) {
      records.rejectPayload();
    } else {
      learn(*record, records.end());
    }
  }
  if (records.damages() > 0) damages.add(fileName, "is damaged");
  if (_lastChange < lastChange) damages.add(fileName, "ends too early");
  _lastChange = std::max(_lastChange, lastChange);
  if (records.isTorn()) _file->endAt(records.end());
}

void ValueLog::learn(const Record& record, std::uint64_t end) {
  if (record.kind == Record::Kind::value && record.payload.size() >= beforeKey) {
    place(std::string(keyIn(record.payload)), end, record);
  } else if (record.kind == Record::Kind::valueRemoved) {
    forget(record.payload);
  }
  _lastChange = std::max(_lastChange, record.edit);
}

void ValueLog::place(std::string key, std::uint64_t end, const Record& record) {
  const auto size = sizeOf(record);
  forget(key);
  _places.emplace(std::move(key), Place{end - size, size, kindIn(record.payload)});
  _living += size;
}

void ValueLog::forget(std::string_view key) {
  const auto found = _places.find(key);
  if (found == _places.end()) return;
  _living -= found->second.size;
  _places.erase(found);
}

bool ValueLog::readAll(const Take& take) const {
  if (!_file) return true;
  const auto bytes = _file->readAll();
  if (!bytes) return false;
  for (const auto& [key, place] : _places) {
    const auto payload = std::string_view(*bytes).substr(place.offset + Record::headerSize,
                                                         place.size - Record::headerSize);
    take(key, valueIn(payload));
  }
  return true;
}

bool ValueLog::put(std::string_view key, const SavedValue& value) {
  const auto payload = payloadOf(key, value);
  const Record record{.kind = Record::Kind::value, .edit = _lastChange + 1, .payload = payload};
  std::string name(key);
  if (!appendChange(record)) return false;
  place(std::move(name), _file->size(), record);
  return true;
}

bool ValueLog::remove(std::string_view key) {
  if (!_places.contains(key)) return true;
  if (!appendChange({.kind = Record::Kind::valueRemoved, .edit = _lastChange + 1, .payload = key}))
    return false;
  forget(key);
  return true;
}

bool ValueLog::appendChange(const Record& record) {
  std::string bytes;
  append(bytes, record, seedFor(_store));
  if (!_file->append(bytes)) return false;
  _lastChange = record.edit;
  return true;
}

bool ValueLog::holdsBytes(std::string_view key) const {
  const auto found = _places.find(key);
  return found != _places.end() && found->second.kind != ValueKind::list;
}

bool ValueLog::isGrown() const {
  return _file->size() > grownSize && _file->size() > 2 * (2 * _living + Head::size);
}

// The living records are copied as they are.
bool ValueLog::rewrite() {
  const auto old = _file->readAll();
  if (!old) return false;
  std::string contents;
  appendHead(contents, {.store = _store, .lastEdit = _lastChange});
  auto places = _places;
  for (auto& [key, place] : places) {
    const auto record = std::string_view(*old).substr(place.offset, place.size);
    contents.append(record);
    place.offset = contents.size();
    contents.append(record);
  }
  auto fresh = LogFile::make(_disk, fileName, contents, LogFile::Sync::yes);
  if (!fresh) return false;
  _disk.sync();
  _file = std::move(fresh);
  _places = std::move(places);
  return true;
}

}  // namespace kite::Linux
