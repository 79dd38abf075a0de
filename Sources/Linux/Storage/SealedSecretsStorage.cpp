#include "Linux/Storage/SealedSecretsStorage.h"

#include <Kite/Linux/LinuxPlatform.h>

#include "Linux/FileSizeSignal.h"
#include "Linux/Storage/MasterKeyFile.h"

#include <utility>

namespace kite::Linux {

namespace {

using Stored = std::shared_ptr<const Larder::StoredValue>;
using Value = CachedStore::Value;

CachedStore::Codec sealing(const std::shared_ptr<const MasterKey>& master) {
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

std::shared_ptr<const MasterKey> keyFor(const StoreFile& file, const std::filesystem::path& place,
                                        const System& system) {
  if (file.folder()) return readOrMakeMasterKey(*file.folder(), system);
  // What was salvaged into memory is sealed with the key that is there.
  const auto folder = PrivateFolder::open(place, /*make=*/false);
  auto key = folder ? readMasterKey(*folder) : nullptr;
  return key ? key : MasterKey::random();
}

}  // namespace

SealedSecretsStorage::SealedSecretsStorage(std::unique_ptr<StoreFile> file,
                                           std::shared_ptr<const MasterKey> key, System system)
    : _values(std::make_unique<CachedStore>(std::move(file), sealing(key), std::move(system))) {}

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
  auto file = StoreFile::ownOrInMemory(folder, secretsStoreName(), system);
  auto key = keyFor(*file, folder, system);
  if (!key) {
    system.print("[KITE] The secrets store keeps its values in memory only: it has no key");
    file = nullptr;  // lets go of its lock
    file = StoreFile::standIn(secretsStoreName(), folder);
    key = MasterKey::random();
  }
  return std::make_shared<SealedSecretsStorage>(std::move(file), std::move(key), system);
}

}  // namespace kite::Linux
