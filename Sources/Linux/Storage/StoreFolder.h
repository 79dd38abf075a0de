#pragma once

#include <Kite/Base/Result.h>
#include <Kite/Platform/System.h>

#include "Linux/Storage/PrivateFolder.h"
#include "Linux/Storage/StoreLogs.h"

#include <memory>
#include <string>

namespace kite::Linux {

struct StoreName {
  std::string title;   ///< for console lines
  std::string prefix;  ///< of its files
  std::string former;  ///< the database of an earlier format, which is set aside
  bool syncsSoon;      ///< every write is put on the medium within a second
};

inline StoreName keyValueStoreName() { return {"key-value store", "kv.", "kv.sqlite", false}; }
inline StoreName secretsStoreName() {
  return {"secrets store", "secrets.", "secrets.sqlite", true};
}

/// The folder of a store with its logs, owned by this process or read beside its owner.
class StoreFolder {
 public:
  using Opened = Result<std::unique_ptr<StoreFolder>, std::string>;

  /// Makes this process the owner; the folder is made when it is missing. The error is one line for
  /// a person.
  static Opened own(const std::filesystem::path& path, const StoreName& name, const System& system);
  static Opened inspect(const std::filesystem::path& path, const StoreName& name);

  StoreLogs& logs() { return *_logs; }
  const PrivateFolder& folder() const { return *_folder; }
  bool isOwned() const { return bool(_lock); }

 private:
  explicit StoreFolder(PrivateFolder folder)
      : _folder(std::make_shared<const PrivateFolder>(std::move(folder))) {}
  std::optional<std::string> lock(const StoreName& name);
  void setFormerAside(const StoreName& name, const System& system);

  std::shared_ptr<const PrivateFolder> _folder;
  FileDescriptor _lock;
  std::unique_ptr<StoreLogs> _logs;
};

}  // namespace kite::Linux
