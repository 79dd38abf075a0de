#include "Linux/Storage/SealedSecretsStorage.h"

#include <Kite/Linux/LinuxPlatform.h>

#include "Linux/Storage/FileSizeSignal.h"
#include "Linux/Storage/MasterKeyFile.h"

#include <utility>

namespace kite::Linux {

namespace {

using Stored = std::shared_ptr<const Larder::StoredValue>;
using Value = RecordStore::Value;

RecordStore::Codec sealing(const std::shared_ptr<const MasterKey>& master) {
  return {
      .encode = [master](std::string_view key, const Value& value) -> std::optional<SavedValue> {
        const auto* stored = std::get_if<Stored>(&value);
        auto sealed = stored && master ? seal(*master, key, (*stored)->data().bytes) : std::nullopt;
        if (!sealed) return std::nullopt;
        return SavedValue{ValueKind::data, *std::move(sealed)};
      },
      .decode = [master](std::string_view key, const SavedValue& saved) -> std::optional<Value> {
        const bool canBeSealed = master && saved.kind == ValueKind::data;
        auto text = canBeSealed ? unseal(*master, key, saved.bytes) : std::nullopt;
        if (!text) return std::nullopt;
        return std::make_shared<const Larder::StoredValue>(Data{*std::move(text)});
      },
      .moveTo =
          [master](const PrivateFolder& folder) {
            return master && keepMasterKey(folder, *master);
          },
  };
}

}  // namespace

SealedSecretsStorage::SealedSecretsStorage(RecordStore::Place place,
                                           std::shared_ptr<const MasterKey> key, System system)
    : _values(std::make_unique<RecordStore>(std::move(place), sealing(key), std::move(system))) {}

Stored SealedSecretsStorage::read(std::string_view key) const {
  auto value = _values->find(key);
  auto* stored = value ? std::get_if<Stored>(&*value) : nullptr;
  return stored ? std::move(*stored) : nullptr;
}

void SealedSecretsStorage::write(std::string_view key, Data data) {
  _values->set(key, std::make_shared<const Larder::StoredValue>(std::move(data)));
}

void SealedSecretsStorage::remove(std::string_view key) { _values->remove(key); }

std::shared_ptr<Larder::SecretsStorage> sealedSecretsStorage(const std::filesystem::path& folder,
                                                             const System& system) {
  const WithoutFileSizeSignal quiet;
  auto place = RecordStore::own(folder, secretsStoreName(), system);
  auto key = place.folder ? readOrMakeMasterKey(place.folder->folder(), system) : nullptr;
  if (place.folder && !key) {
    system.print("[KITE] The secrets store keeps its values in memory only: it has no key");
    place.folder = nullptr;
  }
  if (!key) key = MasterKey::random();
  return std::make_shared<SealedSecretsStorage>(std::move(place), std::move(key), system);
}

}  // namespace kite::Linux
