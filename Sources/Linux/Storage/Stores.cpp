// The stores on disk, as their applications and as tools see them.
#include <Kite/Linux/LinuxPlatform.h>

#include "Linux/Storage/RecordStore.h"

#include <bit>
#include <cstdint>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace kite::Linux {

namespace {

using Larder::StoredValue;

/// The JSON array of a list's elements; null when they cannot be read.
std::shared_ptr<const StoredValue> arrayOf(const Larder::SavedList& list) {
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
  return std::make_shared<const StoredValue>(Data{array + "]"});
}

/// What all stores do alike.
template <class Interface>
class DiskStore : public Interface {
 public:
  explicit DiskStore(std::unique_ptr<RecordStore> values) : _values(std::move(values)) {}

  std::shared_ptr<const StoredValue> read(std::string_view key) const override {
    const auto value = _values->find(key);
    if (value && value->kind == ValueKind::list) {
      const auto list = _values->readList(key);
      return list ? arrayOf(*list) : nullptr;
    }
    return value && value->kind == ValueKind::data ? value->bytes : nullptr;
  }
  std::uint64_t revision() const override { return _values->revision(); }
  void write(std::string_view key, Data data) override {
    _values->set(key, ValueKind::data, std::move(data));
  }
  void remove(std::string_view key) override { _values->remove(key); }

  const RecordStore& values() const { return *_values; }

 protected:
  std::unique_ptr<RecordStore> _values;
};

class LogKVStorage final : public DiskStore<Larder::KVStorage> {
 public:
  using DiskStore::DiskStore;

  std::optional<Larder::SavedList> readList(std::string_view key) const override {
    return _values->readList(key);
  }
  Larder::EditResult edit(std::string_view key, const Larder::ListEdit& edit,
                          Larder::Durability durability) override {
    return _values->edit(key, edit, durability);
  }
  std::optional<double> readNumber(std::string_view key) const override {
    const auto bytes = bytesOf(key, ValueKind::number);
    if (!bytes) return std::nullopt;
    return std::bit_cast<double>(numberAt(bytes->data().bytes, 0, sizeof(double)));
  }
  // Its bytes, so that every number survives, NaN too.
  void writeNumber(std::string_view key, double number) override {
    Data data;
    appendNumber(data.bytes, std::bit_cast<std::uint64_t>(number), sizeof number);
    _values->set(key, ValueKind::number, std::move(data));
  }
  std::optional<Data> readPropertyList(std::string_view key) const override {
    const auto bytes = bytesOf(key, ValueKind::dictionary);
    return bytes ? std::optional(bytes->data()) : std::nullopt;
  }
  void writePropertyList(std::string_view key, Data document) override {
    _values->set(key, ValueKind::dictionary, std::move(document));
  }

 private:
  std::shared_ptr<const StoredValue> bytesOf(std::string_view key, ValueKind kind) const {
    const auto value = _values->find(key);
    return value && value->kind == kind ? value->bytes : nullptr;
  }
};

/// The names of its keys are not sealed.
class SealedSecretsStorage final : public DiskStore<Larder::SecretsStorage> {
 public:
  using DiskStore::DiskStore;

  void lock() override { _monitor.lock(); }
  void unlock() override { _monitor.unlock(); }

 private:
  std::recursive_mutex _monitor;
};

StoreEntry::Kind entryKind(ValueKind kind) {
  switch (kind) {
    case ValueKind::data:
      return StoreEntry::Kind::data;
    case ValueKind::list:
      return StoreEntry::Kind::list;
    case ValueKind::number:
      return StoreEntry::Kind::number;
    case ValueKind::dictionary:
      break;
  }
  return StoreEntry::Kind::dictionary;
}

template <class Store>
class Inspector final : public StoreInspector {
 public:
  explicit Inspector(std::unique_ptr<RecordStore> values)
      : _store(std::make_shared<Store>(std::move(values))) {}

  std::vector<StoreEntry> entries() const override {
    std::vector<StoreEntry> entries;
    for (const auto& [key, kind] : _store->values().kinds())
      entries.push_back({key, entryKind(kind)});
    return entries;
  }
  std::shared_ptr<Larder::Storage> storage() const override { return _store; }
  std::shared_ptr<Larder::KVStorage> keyValues() const override {
    if constexpr (std::is_base_of_v<Larder::KVStorage, Store>) return _store;
    return nullptr;
  }

 private:
  std::shared_ptr<Store> _store;
};

}  // namespace

std::shared_ptr<Larder::KVStorage> keyValueStorage(const std::filesystem::path& folder,
                                                   const System& system) {
  return std::make_shared<LogKVStorage>(RecordStore::open(folder, keyValueStoreName(), system));
}

std::shared_ptr<Larder::SecretsStorage> sealedSecretsStorage(const std::filesystem::path& folder,
                                                             const System& system) {
  return std::make_shared<SealedSecretsStorage>(
      RecordStore::open(folder, secretsStoreName(), system));
}

Result<std::shared_ptr<StoreInspector>, std::string> inspectStore(
    const std::filesystem::path& folder, StoreKind kind, bool forWriting) {
  const bool isKeyValues = kind == StoreKind::keyValues;
  const auto name = isKeyValues ? keyValueStoreName() : secretsStoreName();
  auto values = RecordStore::inspect(folder, name, forWriting);
  if (!values) return Failure{values.error()};
  if (isKeyValues)
    return std::shared_ptr<StoreInspector>(
        std::make_shared<Inspector<LogKVStorage>>(*std::move(values)));
  return std::shared_ptr<StoreInspector>(
      std::make_shared<Inspector<SealedSecretsStorage>>(*std::move(values)));
}

}  // namespace kite::Linux
