#include <Kite/Linux/LinuxPlatform.h>

#include "Linux/Storage/LogKVStorage.h"
#include "Linux/Storage/MasterKeyFile.h"
#include "Linux/Storage/SealedSecretsStorage.h"

#include <utility>

namespace kite::Linux {

namespace {

StoreEntry::Kind kindOf(const RecordStore::Value& value) {
  constexpr StoreEntry::Kind kinds[] = {StoreEntry::Kind::data, StoreEntry::Kind::list,
                                        StoreEntry::Kind::number, StoreEntry::Kind::dictionary};
  return kinds[value.index()];
}

template <class Store>
class Inspector final : public StoreInspector {
 public:
  explicit Inspector(std::shared_ptr<Store> store) : _store(std::move(store)) {}

  std::vector<StoreEntry> entries() const override {
    std::vector<StoreEntry> entries;
    for (const auto& [key, value] : _store->values().all()) entries.push_back({key, kindOf(value)});
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

using Inspection = Result<std::shared_ptr<StoreInspector>, std::string>;

template <class Store>
Inspection inspection(std::shared_ptr<Store> store) {
  return std::shared_ptr<StoreInspector>(std::make_shared<Inspector<Store>>(std::move(store)));
}

}  // namespace

Inspection inspectStore(const std::filesystem::path& folder, StoreKind kind, bool forWriting) {
  const auto& system = System::live();
  const auto name = kind == StoreKind::keyValues ? keyValueStoreName() : secretsStoreName();
  auto opened =
      forWriting ? StoreFolder::own(folder, name, system) : StoreFolder::inspect(folder, name);
  if (!opened) return Failure{opened.error()};
  const auto& place = (*opened)->folder();
  std::shared_ptr<const MasterKey> key;
  if (kind == StoreKind::secrets) {
    key = forWriting ? readOrMakeMasterKey(place, system) : readMasterKey(place);
    if (!key) return Failure{folder.string() + " holds no key to the secrets"};
  }
  // A reader has no place to come back to.
  RecordStore::Place where{name, forWriting ? folder : "", *std::move(opened)};
  if (kind == StoreKind::keyValues)
    return inspection(std::make_shared<LogKVStorage>(std::move(where), system));
  return inspection(
      std::make_shared<SealedSecretsStorage>(std::move(where), std::move(key), system));
}

}  // namespace kite::Linux
