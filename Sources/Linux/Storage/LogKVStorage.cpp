#include "Linux/Storage/LogKVStorage.h"

#include <Kite/Linux/LinuxPlatform.h>
#include <Kite/Platform/LegacyArchive.h>

#include "LegacyArchive/PropertyList.h"

#include <bit>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace kite::Linux {

namespace {

using Stored = std::shared_ptr<const Larder::StoredValue>;
using Dictionary = std::shared_ptr<const DynamicValue::Dictionary>;
using Value = RecordStore::Value;

class CollectedRows final : public Larder::ListReader {
 public:
  void begin(std::uint64_t) override { _rows.clear(); }
  void take(std::uint64_t ordinal, std::string_view text) override {
    _rows.push_back({ordinal, std::string(text)});
  }
  Stored value() && { return std::make_shared<const Larder::StoredValue>(std::move(_rows)); }

 private:
  std::vector<Larder::StoredValue::StoredRow> _rows;
};

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

std::optional<Value> dictionaryFrom(const std::string& bytes) {
  auto dictionary = LegacyArchive::propertyListDictionary(bytes);
  if (!dictionary) return std::nullopt;
  return std::make_shared<const DynamicValue::Dictionary>(*std::move(dictionary));
}

std::optional<SavedValue> encode(std::string_view, const Value& value) {
  if (const auto* stored = std::get_if<Stored>(&value))
    return SavedValue{ValueKind::data, (*stored)->data().bytes};
  if (const auto* number = std::get_if<double>(&value))
    return SavedValue{ValueKind::number, bytesOf(*number)};
  if (const auto* dictionary = std::get_if<Dictionary>(&value))
    return SavedValue{ValueKind::dictionary, PropertyList::write(**dictionary)};
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
      return dictionaryFrom(saved.bytes);
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
    CollectedRows rows;
    return _values->readList(key, rows) ? std::move(rows).value() : nullptr;
  }
  auto* stored = std::get_if<Stored>(&*value);
  return stored ? std::move(*stored) : nullptr;
}

bool LogKVStorage::readList(std::string_view key, Larder::ListReader& reader) const {
  const auto value = _values->find(key);
  return value && std::holds_alternative<RecordStore::List>(*value) &&
         _values->readList(key, reader);
}

void LogKVStorage::write(std::string_view key, Data data) {
  _values->set(key, std::make_shared<const Larder::StoredValue>(std::move(data)));
}

void LogKVStorage::remove(std::string_view key) { _values->remove(key); }

Larder::EditOutcome LogKVStorage::edit(std::string_view key, const Larder::ListEdit& edit,
                                       Larder::Durability durability) {
  return _values->edit(key, edit, durability);
}

std::optional<double> LogKVStorage::readNumber(std::string_view key) const {
  const auto value = _values->find(key);
  const auto* number = value ? std::get_if<double>(&*value) : nullptr;
  return number ? std::optional(*number) : std::nullopt;
}

void LogKVStorage::writeNumber(std::string_view key, double number) { _values->set(key, number); }

std::optional<DynamicValue::Dictionary> LogKVStorage::readDictionary(std::string_view key) const {
  const auto value = _values->find(key);
  const auto* dictionary = value ? std::get_if<Dictionary>(&*value) : nullptr;
  return dictionary ? std::optional(**dictionary) : std::nullopt;
}

void LogKVStorage::writeDictionary(std::string_view key,
                                   const DynamicValue::Dictionary& dictionary) {
  _values->set(key, std::make_shared<const DynamicValue::Dictionary>(dictionary));
}

std::shared_ptr<Larder::KVStorage> keyValueStorage(const std::filesystem::path& folder,
                                                   const System& system) {
  return std::make_shared<LogKVStorage>(RecordStore::own(folder, keyValueStoreName(), system),
                                        system);
}

}  // namespace kite::Linux
