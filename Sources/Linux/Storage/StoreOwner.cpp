// How a store's folder is opened and its owner made sure of.
#include "Linux/Storage/FileSizeSignal.h"
#include "Linux/Storage/FolderDisk.h"
#include "Linux/Storage/StoreLogs.h"

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

Result<FileDescriptor, std::string> locked(const PrivateFolder& folder, const StoreName& name) {
  auto file = folder.openFile(name.prefix + StoreLogs::lockName, O_RDWR | O_CREAT);
  if (file && ::flock(file->get(), LOCK_EX | LOCK_NB) != 0)
    return Failure{folder.path().string() + (isLockedHere(*file)
                                                 ? " is in use by this process already"
                                                 : " is in use by another process")};
  return file;
}

void setFormerAside(const PrivateFolder& folder, const StoreName& name, const System& system) {
  if (!folder.exists(name.former)) return;
  const auto suffix = ".former-" + system.randomUUID().text();
  for (const auto* part : {"", "-wal", "-shm"})
    folder.rename(name.former + part, name.former + suffix + part);
  system.print("[KITE] The " + name.title + " has an earlier format: it was set aside as " +
               name.former + suffix);
}

}  // namespace

StoreLogs::Opened StoreLogs::own(const std::filesystem::path& path, const StoreName& name,
                                 const System& system) {
  const WithoutFileSizeSignal quiet;
  auto opened = PrivateFolder::open(path, /*make=*/true);
  if (!opened) return Failure{opened.error()};
  auto folder = std::make_shared<const PrivateFolder>(*std::move(opened));
  auto lock = locked(*folder, name);
  if (!lock) return Failure{lock.error()};
  setFormerAside(*folder, name, system);
  auto logs = own(std::make_shared<FolderDisk>(folder, name.prefix, FolderDisk::Access::readWrite),
                  name.title, system);
  if (!logs) return logs;
  auto owned = *std::move(logs);
  owned->_folder = std::move(folder);
  owned->_lock = *std::move(lock);
  return owned;
}

StoreLogs::Opened StoreLogs::inspect(const std::filesystem::path& path, const StoreName& name) {
  auto opened = PrivateFolder::open(path, /*make=*/false);
  if (!opened) return Failure{opened.error()};
  auto folder = std::make_shared<const PrivateFolder>(*std::move(opened));
  auto logs =
      inspect(std::make_shared<FolderDisk>(folder, name.prefix, FolderDisk::Access::readOnly),
              name.title, System::live());
  if (!logs) return Failure{folder->path().string() + ": " + logs.error()};
  auto read = *std::move(logs);
  read->_folder = std::move(folder);
  return read;
}

}  // namespace kite::Linux
