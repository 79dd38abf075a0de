#include "Linux/Storage/LogKVStorage.h"

#include <Kite/Linux/LinuxPlatform.h>

#include <bit>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace kite::Linux {

namespace {

using Stored = std::shared_ptr<const Larder::StoredValue>;
using PropertyList = std::shared_ptr<const Data>;
using Value = RecordStore::Value;

/// The JSON array of a list's elements; null when they cannot be read.
Stored arrayOf(const Larder::SavedList& list) {
  std::string array = "[";
  const auto take = [&](std::optional<std::string_view> text) {
    if (!text) return;
    if (array.size() > 1) array += ',';
    array += *text;
  };
  auto rest = std::span(list.rows);
  while (!rest.empty()) {
    const auto& file = rest.front().place.file;
    std::vector<Larder::RowPlace> places;
    for (const auto& row : rest) {
      if (row.place.file != file) break;
      places.push_back(row.place);
    }
    if (file->read(places, take)) return nullptr;
    rest = rest.subspan(places.size());
  }
  return std::make_shared<const Larder::StoredValue>(Data{array + "]"});
}

// Eight bytes, little-endian, so that every number survives, NaN too.
std::string bytesOf(double number) {
  auto bits = std::bit_cast<std::uint64_t>(number);
  std::string bytes;
  for (int i = 0; i < 8; ++i, bits >>= 8) bytes += static_cast<char>(bits & 0xFF);
  return bytes;
}

std::optional<Value> numberFrom(const std::string& bytes) {
  if (bytes.size() != 8) return std::nullopt;
  std::uint64_t bits = 0;
  for (int i = 7; i >= 0; --i)
    bits = bits << 8 | static_cast<unsigned char>(bytes[static_cast<std::size_t>(i)]);
  return std::bit_cast<double>(bits);
}

std::optional<SavedValue> encode(std::string_view, const Value& value) {
  if (const auto* stored = std::get_if<Stored>(&value))
    return SavedValue{ValueKind::data, (*stored)->data().bytes};
  if (const auto* number = std::get_if<double>(&value))
    return SavedValue{ValueKind::number, bytesOf(*number)};
  if (const auto* list = std::get_if<PropertyList>(&value))
    return SavedValue{ValueKind::dictionary, (*list)->bytes};
  return std::nullopt;
}

std::optional<Value> decode(std::string_view, const SavedValue& saved) {
  switch (saved.kind) {
    case ValueKind::data:
      return std::make_shared<const Larder::StoredValue>(Data{saved.bytes});
    case ValueKind::list:
      return std::nullopt;
    case ValueKind::number:
      return numberFrom(saved.bytes);
    case ValueKind::dictionary:
      return std::make_shared<const Data>(Data{saved.bytes});
  }
  return std::nullopt;
}

}  // namespace

LogKVStorage::LogKVStorage(RecordStore::Place place, System system)
    : _values(std::make_unique<RecordStore>(std::move(place),
                                            RecordStore::Codec{.encode = encode, .decode = decode},
                                            std::move(system))) {}

Stored LogKVStorage::read(std::string_view key) const {
  auto value = _values->find(key);
  if (!value) return nullptr;
  if (std::holds_alternative<RecordStore::List>(*value)) {
    const auto list = _values->readList(key);
    return list ? arrayOf(*list) : nullptr;
  }
  auto* stored = std::get_if<Stored>(&*value);
  return stored ? std::move(*stored) : nullptr;
}

std::optional<Larder::SavedList> LogKVStorage::readList(std::string_view key) const {
  return _values->readList(key);
}

void LogKVStorage::write(std::string_view key, Data data) {
  _values->set(key, std::make_shared<const Larder::StoredValue>(std::move(data)));
}

void LogKVStorage::remove(std::string_view key) { _values->remove(key); }

Larder::EditResult LogKVStorage::edit(std::string_view key, const Larder::ListEdit& edit,
                                      Larder::Durability durability) {
  return _values->edit(key, edit, durability);
}

std::optional<double> LogKVStorage::readNumber(std::string_view key) const {
  const auto value = _values->find(key);
  const auto* number = value ? std::get_if<double>(&*value) : nullptr;
  return number ? std::optional(*number) : std::nullopt;
}

void LogKVStorage::writeNumber(std::string_view key, double number) { _values->set(key, number); }

std::optional<Data> LogKVStorage::readPropertyList(std::string_view key) const {
  const auto value = _values->find(key);
  const auto* list = value ? std::get_if<PropertyList>(&*value) : nullptr;
  return list ? std::optional(**list) : std::nullopt;
}

void LogKVStorage::writePropertyList(std::string_view key, Data document) {
  _values->set(key, std::make_shared<const Data>(std::move(document)));
}

std::shared_ptr<Larder::KVStorage> keyValueStorage(const std::filesystem::path& folder,
                                                   const System& system) {
  return std::make_shared<LogKVStorage>(RecordStore::own(folder, keyValueStoreName(), system),
                                        system);
}

}  // namespace kite::Linux
