#pragma once

#include <Kite/Base/Result.h>
#include <Kite/Platform/System.h>

#include "Linux/Storage/PrivateFolder.h"
#include "Linux/Storage/RowStore.h"

#include <array>
#include <memory>
#include <optional>
#include <string>

namespace kite::Linux {

struct StoreName {
  std::string file;
  std::string title;  ///< for console lines
  RowStore::Durability durability;
};

inline StoreName keyValueStoreName() {
  return {"kv.sqlite", "key-value store", RowStore::Durability::surviveCrash};
}
inline StoreName secretsStoreName() {
  return {"secrets.sqlite", "secrets store", RowStore::Durability::survivePowerFailure};
}

/// The database file of a store, or one in memory that stands in for it. One thread at a time.
class StoreFile {
 public:
  using Opened = Result<std::unique_ptr<StoreFile>, std::string>;

  /// Makes this process the owner of the store in `folder`, which is made when it is missing. What
  /// is there but is no store is set aside. The error is one line for a person.
  static Opened own(const std::filesystem::path& folder, StoreName name, const System& system);
  /// When that fails the console learns why, and the store lives in memory.
  static std::unique_ptr<StoreFile> ownOrInMemory(const std::filesystem::path& folder,
                                                  const StoreName& name, const System& system);
  /// For reading beside the owner.
  static Opened inspect(const std::filesystem::path& folder, StoreName name);
  static std::unique_ptr<StoreFile> inMemory(StoreName name);
  /// One in memory, for a file that is away.
  static std::unique_ptr<StoreFile> standIn(StoreName name, std::filesystem::path place);

  /// Whether the file was removed from the disk, or could not be had: `own` may be tried again.
  bool isAway() const;
  /// The folder that it was to live in.
  const std::filesystem::path& place() const { return _place; }
  /// Gives the place up.
  void stayAway() { _place.clear(); }

  RowStore& rows() { return *_rows; }
  const StoreName& name() const { return _name; }
  bool isWritable() const { return _access == Database::Access::readWrite; }
  /// Where the store lives; null when that is nowhere but in memory.
  const PrivateFolder* folder() const { return _folder ? &*_folder : nullptr; }

  /// Renames a file that turned out to be damaged and begins a new one with what can be made out in
  /// it. Goes on in memory when that cannot be done. Fails, and leaves all as it is, when the bytes
  /// cannot be read: they may be sound.
  Outcome beginAfresh(const System& system);

 private:
  StoreFile(StoreName name, Database::Access access) : _name(std::move(name)), _access(access) {}

  static std::unique_ptr<RowStore> rowsInMemory(RowStore::Durability durability);
  std::optional<std::string> lock();
  /// Those of the database, its log and the log's index.
  std::array<std::string, 3> fileNames() const;
  std::optional<std::string> makeFiles();
  std::optional<std::string> fault() const;
  Outcome openOwnRows();
  Outcome openRows();
  std::filesystem::path path() const { return _folder->path() / _name.file; }
  /// The log's bytes, none when there is no log; nothing when they cannot be read.
  std::optional<std::string> log() const;
  std::string freeName(Date now) const;
  bool setAside(const std::string& newName);
  std::optional<std::size_t> salvage(const std::string& file, const std::string& log);
  void standInForItself();
  void letGoOfFolder();

  StoreName _name;
  Database::Access _access;
  std::filesystem::path _place;
  std::optional<PrivateFolder> _folder;
  FileDescriptor _lock;
  FileDescriptor _bytes;  ///< the database's; longer open than its rows, whose locks it would take
  std::unique_ptr<RowStore> _rows;
};

}  // namespace kite::Linux
