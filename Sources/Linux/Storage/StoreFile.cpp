#include "Linux/Storage/StoreFile.h"

#include "Base/IfMemoryAllows.h"
#include "Linux/FileSizeSignal.h"
#include "Linux/Storage/Carver.h"
#include "Linux/Storage/PageFormat.h"
#include "Linux/Storage/WriteAheadLog.h"

#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ctime>
#include <new>
#include <sstream>
#include <utility>

namespace kite::Linux {

namespace {

std::string utcStamp(Date date) {
  const auto seconds = static_cast<std::time_t>(date.secondsSince1970);
  std::tm parts{};
  char text[32];
  if (!::gmtime_r(&seconds, &parts)) return "unknown";
  return {text, std::strftime(text, sizeof text, "%Y%m%dT%H%M%SZ", &parts)};
}

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

constexpr const char* logSuffix = "-wal";

constexpr std::size_t largestSalvaged = std::size_t{1} << 30;

// Other numbers here SQLite takes for a wish that it must not write, or for news from the future.
bool isHeaderSound(std::string_view file) {
  constexpr std::size_t headerSize = 100;
  constexpr std::string_view layout("\x20\0\2\2\4\x40\x20\x20", 8);
  if (file.size() < headerSize) return true;
  const auto schemaFormat = numberAt(file, 44);
  return file.substr(16, layout.size()) == layout && (schemaFormat == 0 || schemaFormat == 4);
}

}  // namespace

StoreFile::Opened StoreFile::own(const std::filesystem::path& path, StoreName name,
                                 const System& system) {
  const WithoutFileSizeSignal quiet;
  auto folder = PrivateFolder::open(path, /*make=*/true);
  if (!folder) return Failure{folder.error()};
  std::unique_ptr<StoreFile> file(new StoreFile(std::move(name), Database::Access::readWrite));
  file->_folder.emplace(*std::move(folder));
  file->_place = path;
  // Nobody may touch the database before it is locked: a descriptor of it that is closed takes the
  // locks of the whole process along.
  if (auto reason = file->lock()) return Failure{*std::move(reason)};
  if (auto reason = file->makeFiles()) return Failure{*std::move(reason)};
  auto outcome = file->openOwnRows();
  if (outcome == Outcome::damaged) outcome = file->beginAfresh(system);
  if (outcome != Outcome::done) return Failure{file->path().string() + " cannot be opened"};
  return file;
}

std::unique_ptr<StoreFile> StoreFile::ownOrInMemory(const std::filesystem::path& folder,
                                                    const StoreName& name, const System& system) {
  auto file = own(folder, name, system);
  if (file) return *std::move(file);
  system.print("[KITE] The " + name.title + " keeps its values in memory only: " + file.error());
  return standIn(name, folder);
}

StoreFile::Opened StoreFile::inspect(const std::filesystem::path& path, StoreName name) {
  auto folder = PrivateFolder::open(path, /*make=*/false);
  if (!folder) return Failure{folder.error()};
  std::unique_ptr<StoreFile> file(new StoreFile(std::move(name), Database::Access::readOnly));
  file->_folder.emplace(*std::move(folder));
  if (auto reason = file->fault()) return Failure{*std::move(reason)};
  const auto outcome = file->openRows();
  if (outcome == Outcome::done) return file;
  return Failure{file->path().string() +
                 (outcome == Outcome::damaged ? " is damaged or no store" : " cannot be opened")};
}

std::unique_ptr<StoreFile> StoreFile::inMemory(StoreName name) {
  std::unique_ptr<StoreFile> file(new StoreFile(std::move(name), Database::Access::readWrite));
  file->_rows = rowsInMemory(file->_name.durability);
  return file;
}

std::unique_ptr<RowStore> StoreFile::rowsInMemory(RowStore::Durability durability) {
  std::unique_ptr<RowStore> rows;
  auto database = Database::open("", Database::Access::readWrite);
  if (!database || RowStore::open(std::move(database), durability, rows) != Outcome::done)
    throw std::bad_alloc();
  return rows;
}

std::unique_ptr<StoreFile> StoreFile::standIn(StoreName name, std::filesystem::path place) {
  auto file = inMemory(std::move(name));
  file->_place = std::move(place);
  return file;
}

bool StoreFile::isAway() const {
  return !_place.empty() && (!_folder || _folder->isMissing(_name.file));
}

std::optional<std::string> StoreFile::lock() {
  auto file = _folder->openFile(_name.file + ".lock");
  if (!file) return file.error();
  if (::flock(file->get(), LOCK_EX | LOCK_NB) != 0)
    return path().string() + (isLockedHere(*file) ? " is in use by this process already"
                                                  : " is in use by another process");
  _lock = *std::move(file);
  return std::nullopt;
}

std::array<std::string, 3> StoreFile::fileNames() const {
  return {_name.file, _name.file + logSuffix, _name.file + "-shm"};
}

// SQLite makes the others by itself, but would write through a hard link that is there.
std::optional<std::string> StoreFile::makeFiles() {
  for (const auto& name : fileNames()) {
    if (name != _name.file && !_folder->exists(name)) continue;
    if (auto reason = _folder->make(name)) return reason;
  }
  return std::nullopt;
}

// The owner may remove the log meanwhile.
std::optional<std::string> StoreFile::fault() const {
  for (const auto& name : fileNames()) {
    auto reason = _folder->fault(name);
    if (reason && (name == _name.file || !_folder->isMissing(name))) return reason;
  }
  return std::nullopt;
}

// SQLite drops what follows a damaged frame of the log.
Outcome StoreFile::openOwnRows() {
  _bytes = openForReading(path());
  const auto file = readBeginning(_bytes, pageSize), bytes = log();
  if (!file || !bytes) return Outcome::failed;
  const bool isSound = isHeaderSound(*file) && !WriteAheadLog(*bytes).isBroken();
  return isSound ? openRows() : Outcome::damaged;
}

Outcome StoreFile::openRows() {
  auto database = Database::open(path(), _access);
  if (!database) return Outcome::failed;
  return isWritable() ? RowStore::open(std::move(database), _name.durability, _rows)
                      : RowStore::openForReading(std::move(database), _rows);
}

Outcome StoreFile::beginAfresh(const System& system) {
  // SQLite, when it closes the file, moves the sound beginning of the log into it.
  const auto oldFile = _folder ? readBeginning(_bytes, largestSalvaged) : "", oldLog = log();
  if (!oldFile || !oldLog) return Outcome::failed;
  const auto newName = _folder ? freeName(system.now()) : "";
  // Whatever fails from here on, there is a store.
  _rows = rowsInMemory(_name.durability);
  bool isAnew = false;
  ifMemoryAllows([&] { isAnew = _folder && setAside(newName) && openOwnRows() == Outcome::done; });
  if (!isAnew) {
    letGoOfFolder();
    stayAway();
    system.print("[KITE] The " + _name.title + " is damaged, values are kept in memory only");
    return Outcome::done;
  }
  auto recovered = salvage(*oldFile, *oldLog);
  if (!recovered) {
    // Memory has space for them until the disk has.
    standInForItself();
    recovered = salvage(*oldFile, *oldLog);
  }
  system.print("[KITE] The " + _name.title + " is damaged: it was set aside as " + newName + ", " +
               std::to_string(recovered.value_or(0)) + " entries were recovered");
  return Outcome::done;
}

std::optional<std::size_t> StoreFile::salvage(const std::string& file, const std::string& log) {
  Carver damaged(file, log);
  std::size_t recovered = 0;
  if (_rows->salvage(damaged, recovered) != Outcome::done) return std::nullopt;
  return recovered;
}

std::optional<std::string> StoreFile::log() const {
  const auto name = _name.file + logSuffix;
  if (!_folder || _folder->isMissing(name)) return "";
  const auto file = openForReading(_folder->path() / name);
  return file ? readBeginning(file, largestSalvaged) : std::nullopt;
}

std::string StoreFile::freeName(Date now) const {
  auto name = _name.file + ".corrupt-" + utcStamp(now);
  if (!_folder->exists(name)) return name;
  for (int number = 1;; ++number) {
    auto numbered = name + "-" + std::to_string(number);
    if (!_folder->exists(numbered)) return numbered;
  }
}

bool StoreFile::setAside(const std::string& newName) {
  for (const auto& name : fileNames()) {
    const auto suffix = name.substr(_name.file.size());
    if (_folder->exists(name) && !_folder->rename(name, newName + suffix)) return false;
  }
  return !_folder->make(_name.file);
}

void StoreFile::standInForItself() {
  _rows = rowsInMemory(_name.durability);
  letGoOfFolder();
}

void StoreFile::letGoOfFolder() {
  _bytes = FileDescriptor();
  _lock = FileDescriptor();
  _folder.reset();
}

}  // namespace kite::Linux
