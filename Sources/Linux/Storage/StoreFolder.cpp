#include "Linux/Storage/StoreFolder.h"

#include "Linux/Storage/FileSizeSignal.h"
#include "Linux/Storage/FolderDisk.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <sstream>
#include <utility>

namespace kite::Linux {

namespace {

/// Whether the lock on a file is this process's own, as far as the system tells.
bool isLockedHere(const FileDescriptor& file) {
  constexpr std::size_t longest = std::size_t{1} << 20;
  struct stat status {};
  if (::fstat(file.get(), &status) != 0) return false;
  std::istringstream locks(readFile("/proc/locks", longest).value_or(""));
  const auto holder = " WRITE " + std::to_string(::getpid()) + " ";
  const auto place = ":" + std::to_string(status.st_ino) + " ";
  for (std::string line; std::getline(locks, line);)
    if (line.find("FLOCK") != line.npos && line.find(holder) != line.npos &&
        line.find(place) != line.npos)
      return true;
  return false;
}

}  // namespace

StoreFolder::Opened StoreFolder::own(const std::filesystem::path& path, const StoreName& name,
                                     const System& system) {
  const WithoutFileSizeSignal quiet;
  auto folder = PrivateFolder::open(path, /*make=*/true);
  if (!folder) return Failure{folder.error()};
  std::unique_ptr<StoreFolder> store(new StoreFolder(*std::move(folder)));
  if (auto reason = store->lock(name)) return Failure{*std::move(reason)};
  store->setFormerAside(name, system);
  auto disk =
      std::make_shared<FolderDisk>(store->_folder, name.prefix, FolderDisk::Access::readWrite);
  auto logs = StoreLogs::own(std::move(disk), name.title, system);
  if (!logs) return Failure{logs.error()};
  store->_logs = *std::move(logs);
  return store;
}

StoreFolder::Opened StoreFolder::inspect(const std::filesystem::path& path, const StoreName& name) {
  auto folder = PrivateFolder::open(path, /*make=*/false);
  if (!folder) return Failure{folder.error()};
  std::unique_ptr<StoreFolder> store(new StoreFolder(*std::move(folder)));
  auto disk =
      std::make_shared<FolderDisk>(store->_folder, name.prefix, FolderDisk::Access::readOnly);
  auto logs = StoreLogs::inspect(std::move(disk), name.title, System::live());
  if (!logs) return Failure{store->_folder->path().string() + ": " + logs.error()};
  store->_logs = *std::move(logs);
  return store;
}

std::optional<std::string> StoreFolder::lock(const StoreName& name) {
  auto file = _folder->openFile(name.prefix + StoreLogs::lockName, O_RDWR | O_CREAT);
  if (!file) return file.error();
  if (::flock(file->get(), LOCK_EX | LOCK_NB) != 0)
    return _folder->path().string() + (isLockedHere(*file) ? " is in use by this process already"
                                                           : " is in use by another process");
  _lock = *std::move(file);
  return std::nullopt;
}

void StoreFolder::setFormerAside(const StoreName& name, const System& system) {
  if (!_folder->exists(name.former)) return;
  const auto suffix = ".former-" + system.randomUUID().text();
  for (const auto* part : {"", "-wal", "-shm"})
    _folder->rename(name.former + part, name.former + suffix + part);
  system.print("[KITE] The " + name.title + " has an earlier format: it was set aside as " +
               name.former + suffix);
}

}  // namespace kite::Linux
