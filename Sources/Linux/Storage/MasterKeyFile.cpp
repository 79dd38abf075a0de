#include "Linux/Storage/MasterKeyFile.h"

#include <fcntl.h>
#include <openssl/crypto.h>

#include <optional>
#include <string>

namespace kite::Linux {

namespace {

constexpr const char* fileName = "master.key";

// A sound file that cannot be read this time stays where it is: without it all secrets are lost.
bool isUnusable(const PrivateFolder& folder) {
  const auto size = folder.sizeOf(fileName);
  return size && (*size != MasterKey::size || folder.fault(fileName));
}

}  // namespace

std::shared_ptr<const MasterKey> readMasterKey(const PrivateFolder& folder) {
  if (folder.fault(fileName)) return nullptr;
  auto bytes = readFile(folder.path() / fileName, MasterKey::size);
  if (!bytes) return nullptr;
  auto key = MasterKey::fromBytes(*bytes);
  OPENSSL_cleanse(bytes->data(), bytes->size());
  return key;
}

std::shared_ptr<const MasterKey> readOrMakeMasterKey(const PrivateFolder& folder,
                                                     const System& system) {
  if (auto key = readMasterKey(folder)) {
    static_cast<void>(folder.openFile(fileName, O_RDWR));  // takes it from others' eyes
    return key;
  }
  if (!folder.isMissing(fileName)) {
    if (!isUnusable(folder)) return nullptr;
    const auto aside = std::string(fileName) + ".unusable-" + system.randomUUID().text();
    if (!folder.rename(fileName, aside)) return nullptr;
    system.print("[KITE] The key of the secrets store is unusable: it was set aside as " + aside);
  }
  auto key = MasterKey::random();
  return key && folder.replaceFile(fileName, key->bytes()) ? key : nullptr;
}

bool keepMasterKey(const PrivateFolder& folder, const MasterKey& key) {
  if (const auto kept = readMasterKey(folder)) return kept->bytes() == key.bytes();
  return folder.isMissing(fileName) && folder.replaceFile(fileName, key.bytes());
}

}  // namespace kite::Linux
