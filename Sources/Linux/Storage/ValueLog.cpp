#include "Linux/Storage/ValueLog.h"

#include <algorithm>
#include <utility>

namespace kite::Linux {

namespace {

constexpr std::uint64_t grownSize = 64 * 1024;
constexpr std::size_t kindSize = 1;
constexpr std::size_t keyLengthSize = 4;
constexpr std::size_t beforeKey = kindSize + keyLengthSize;

std::string payloadOf(const ValueLog::Values::value_type& item) {
  const auto& [key, value] = item;
  std::string payload;
  payload.reserve(beforeKey + key.size() + value.bytes.size());
  appendNumber(payload, static_cast<std::uint8_t>(value.kind), kindSize);
  appendNumber(payload, key.size(), keyLengthSize);
  payload.append(key).append(value.bytes);
  return payload;
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
      learn(*record);
    }
  }
  if (records.isDamagedBefore()) damages.add(fileName, "is damaged");
  if (_lastChange < lastChange || records.endsInZeros()) damages.add(fileName, "ends too early");
  _lastChange = std::max(_lastChange, lastChange);
  if (records.isTorn()) _file->endAt(records.end());
}

void ValueLog::learn(const Record& record) {
  auto rest = record.payload;
  if (record.kind == Record::Kind::value && rest.size() >= beforeKey) {
    const auto kind = static_cast<ValueKind>(rest.front());
    const auto keySize = numberAt(rest, kindSize, keyLengthSize);
    rest.remove_prefix(beforeKey);
    const auto key = rest.substr(0, keySize);
    rest.remove_prefix(key.size());
    _values.insert_or_assign(std::string(key), SavedValue{kind, std::string(rest)});
  } else if (record.kind == Record::Kind::valueRemoved) {
    _values.erase(std::string(record.payload));
  }
  _lastChange = std::max(_lastChange, record.edit);
}

bool ValueLog::put(std::string_view key, SavedValue value) {
  // Made before the file changes: after that nothing may go wrong.
  Values changed;
  const auto& item = *changed.emplace(key, std::move(value)).first;
  const auto payload = payloadOf(item);
  if (!appendChange({.kind = Record::Kind::value, .payload = payload})) return false;
  if (const auto earlier = _values.find(key); earlier != _values.end()) _values.erase(earlier);
  _values.merge(changed);
  return true;
}

bool ValueLog::remove(std::string_view key) {
  const auto found = _values.find(key);
  if (found == _values.end()) return true;
  if (!appendChange({.kind = Record::Kind::valueRemoved, .payload = key})) return false;
  _values.erase(found);
  return true;
}

bool ValueLog::appendChange(Record record) {
  record.edit = _lastChange + 1;
  std::string bytes;
  append(bytes, record, seedFor(_store));
  if (!_file->append(bytes)) return false;
  _lastChange = record.edit;
  return true;
}

bool ValueLog::holdsBytes(std::string_view key) const {
  const auto found = _values.find(key);
  return found != _values.end() && found->second.kind != ValueKind::list;
}

bool ValueLog::isGrown() const {
  if (_file->size() <= grownSize) return false;
  std::uint64_t living = Head::size;
  for (const auto& [key, value] : _values)
    living += 2 * (Record::headerSize + beforeKey + key.size() + value.bytes.size());
  return _file->size() > 2 * living;
}

bool ValueLog::rewrite() {
  std::string contents;
  appendHead(contents, {.store = _store, .lastEdit = _lastChange});
  for (const auto& item : _values) {
    const auto payload = payloadOf(item);
    append(contents, {.kind = Record::Kind::value, .edit = _lastChange, .payload = payload},
           seedFor(_store));
  }
  auto fresh = LogFile::make(_disk, fileName, contents, LogFile::Sync::yes);
  if (!fresh) return false;
  _disk.sync();
  _file = std::move(fresh);
  return true;
}

}  // namespace kite::Linux
