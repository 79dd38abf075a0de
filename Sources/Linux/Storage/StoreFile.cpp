#include "Linux/Storage/StoreFile.h"

#include "Linux/FileSizeSignal.h"
#include "Linux/Storage/Carver.h"
#include "Linux/Storage/WriteAheadLog.h"

#include <sys/file.h>

#include <ctime>
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

constexpr const char* logSuffix = "-wal";

constexpr std::size_t largestSalvaged = std::size_t{1} << 30;

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
  const bool isBroken = WriteAheadLog(file->contents(logSuffix)).isBroken();
  const auto outcome = isBroken ? Outcome::damaged : file->openRows();
  if (outcome == Outcome::damaged) file->beginAfresh(system);
  if (outcome == Outcome::failed) return Failure{file->path().string() + " cannot be opened"};
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
  file->openRows();
  return file;
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
    return path().string() + " is in use by another process";
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

Outcome StoreFile::openRows() {
  auto database = Database::open(_folder ? path() : "", _access);
  if (!database) return Outcome::failed;
  return isWritable() ? RowStore::open(std::move(database), _name.durability, _rows)
                      : RowStore::openForReading(std::move(database), _rows);
}

void StoreFile::beginAfresh(const System& system) {
  // SQLite, when it closes the file, moves the sound beginning of the log into it.
  const auto oldFile = contents(""), oldLog = contents(logSuffix);
  _rows.reset();
  const auto newName = _folder ? freeName(system.now()) : "";
  if (!_folder || !setAside(newName) || openRows() != Outcome::done) {
    moveToMemory();
    system.print("[KITE] The " + _name.title + " is damaged, values are kept in memory only");
    return;
  }
  std::size_t recovered = 0;
  Carver damaged(oldFile, oldLog);
  _rows->salvage(damaged, recovered);
  system.print("[KITE] The " + _name.title + " is damaged: it was set aside as " + newName + ", " +
               std::to_string(recovered) + " entries were recovered");
}

std::string StoreFile::contents(const char* companion) const {
  if (!_folder) return "";
  return readFile(_folder->path() / (_name.file + companion), largestSalvaged).value_or("");
}

std::string StoreFile::freeName(Date now) const {
  const auto name = _name.file + ".corrupt-" + utcStamp(now);
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

void StoreFile::moveToMemory() {
  _folder.reset();
  _place.clear();
  openRows();
}

}  // namespace kite::Linux
