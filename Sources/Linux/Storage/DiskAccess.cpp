#include "Linux/Storage/DiskAccess.h"

#include "Linux/Storage/PageSum.h"

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <map>
#include <mutex>
#include <span>
#include <string>
#include <utility>

namespace kite::Linux {

namespace {

constexpr int longestPause = 1000;  // microseconds

thread_local std::uint64_t readFailures = 0;

struct FileMethods : sqlite3_io_methods {
  const sqlite3_io_methods* plain;
  std::size_t plainSize;
};

/// What stands behind SQLite's own data of a file.
struct FileState {
  /// The ways of the locks that it still holds after it was to let go of them, or 0.
  int owedUnlocks[SQLITE_SHM_NLOCK];
  int refusesWrongSums;
};

const FileMethods& methodsOf(sqlite3_file* file) {
  return *static_cast<const FileMethods*>(file->pMethods);
}

FileState& stateOf(sqlite3_file* file) {
  return *reinterpret_cast<FileState*>(reinterpret_cast<char*>(file) + methodsOf(file).plainSize);
}

int read(sqlite3_file* file, void* bytes, int size, sqlite3_int64 place) {
  const int code = methodsOf(file).plain->xRead(file, bytes, size, place);
  if (code == SQLITE_OK || code == SQLITE_IOERR_SHORT_READ) return code;
  ++readFailures;
  return code == SQLITE_IOERR_CORRUPTFS ? SQLITE_IOERR_READ : code;
}

constexpr auto wholePage = static_cast<sqlite3_int64>(pageSize);

bool isPage(int size, sqlite3_int64 place) { return size == wholePage && place % wholePage == 0; }

std::uint32_t pageNumber(sqlite3_int64 place) {
  return static_cast<std::uint32_t>(place / wholePage + 1);
}

// What the file has not got of a page was filled with zeros.
int readPage(sqlite3_file* file, void* bytes, int size, sqlite3_int64 place) {
  const int code = read(file, bytes, size, place);
  const bool wasRead = code == SQLITE_OK || code == SQLITE_IOERR_SHORT_READ;
  if (!wasRead || !isPage(size, place) || !stateOf(file).refusesWrongSums) return code;
  const std::span<const char, pageSize> page(static_cast<const char*>(bytes), pageSize);
  return isSound(page, pageNumber(place)) ? code : SQLITE_CORRUPT;
}

int writePage(sqlite3_file* file, const void* bytes, int size, sqlite3_int64 place) {
  const auto* plain = methodsOf(file).plain;
  if (!isPage(size, place)) return plain->xWrite(file, bytes, size, place);
  std::array<char, pageSize> page;
  std::copy_n(static_cast<const char*>(bytes), page.size(), page.begin());
  writeSum(page, pageNumber(place));
  return plain->xWrite(file, page.data(), size, place);
}

int control(sqlite3_file* file, int operation, void* argument) {
  if (operation != refuseWrongSums)
    return methodsOf(file).plain->xFileControl(file, operation, argument);
  stateOf(file).refusesWrongSums = *static_cast<const int*>(argument);
  return SQLITE_OK;
}

bool unlockOwed(sqlite3_file* file) {
  int number = 0;
  for (auto& flags : stateOf(file).owedUnlocks) {
    if (flags != 0 && methodsOf(file).plain->xShmLock(file, number, 1, flags) == SQLITE_OK)
      flags = 0;
    ++number;
  }
  return std::ranges::all_of(stateOf(file).owedUnlocks, [](int flags) { return flags == 0; });
}

int lock(sqlite3_file* file, int first, int count, int flags) {
  const bool isUnlock = (flags & SQLITE_SHM_UNLOCK) != 0;
  if (!unlockOwed(file) && !isUnlock) return SQLITE_BUSY;
  const int code = methodsOf(file).plain->xShmLock(file, first, count, flags);
  if (isUnlock && code != SQLITE_OK) std::fill_n(stateOf(file).owedUnlocks + first, count, flags);
  return code;
}

/// Lives to the end of the process, of which nobody knows who still has a file open then.
class DiskAccess {
 public:
  explicit DiskAccess(sqlite3_vfs& plain)
      : _plain(plain), _vfs(plain), _plainSize(roundedUp(plain.szOsFile)) {
    _vfs.zName = _name.c_str();
    _vfs.pAppData = this;
    _vfs.szOsFile = static_cast<int>(_plainSize + sizeof(FileState));
    _vfs.xOpen = open;
    _vfs.xSleep = sleep;
    sqlite3_vfs_register(&_vfs, /*makeDflt=*/0);
  }

  const char* name() const { return _name.c_str(); }

 private:
  static std::size_t roundedUp(int size) {
    constexpr auto unit = alignof(std::max_align_t);
    return (static_cast<std::size_t>(size) + unit - 1) / unit * unit;
  }
  static DiskAccess& of(sqlite3_vfs* vfs) { return *static_cast<DiskAccess*>(vfs->pAppData); }

  static int open(sqlite3_vfs* vfs, const char* path, sqlite3_file* file, int flags, int* granted) {
    auto& access = of(vfs);
    const int code = access._plain.xOpen(&access._plain, path, file, flags, granted);
    if (!file->pMethods) return code;
    file->pMethods = access.methodsFor(file->pMethods, (flags & SQLITE_OPEN_MAIN_DB) != 0);
    stateOf(file) = {};
    return code;
  }

  static int sleep(sqlite3_vfs* vfs, int microseconds) {
    auto& plain = of(vfs)._plain;
    return plain.xSleep(&plain, std::min(microseconds, longestPause));
  }

  const sqlite3_io_methods* methodsFor(const sqlite3_io_methods* plain, bool isDatabase) {
    const std::scoped_lock guard(_mutex);
    const auto [found, isNew] =
        _methods.try_emplace({plain, isDatabase}, FileMethods{{*plain}, plain, _plainSize});
    auto& methods = found->second;
    if (!isNew) return &methods;
    methods.xRead = read;
    if (plain->iVersion >= 2) methods.xShmLock = lock;
    if (isDatabase) {
      methods.iVersion = std::min(plain->iVersion, 2);  // a page in mapped memory comes unread
      methods.xRead = readPage;
      methods.xWrite = writePage;
      methods.xFileControl = control;
    }
    return &methods;
  }

  const std::string _name = "kite";
  sqlite3_vfs& _plain;
  sqlite3_vfs _vfs;
  const std::size_t _plainSize;
  std::mutex _mutex;
  std::map<std::pair<const sqlite3_io_methods*, bool>, FileMethods> _methods;  // a few
};

}  // namespace

const char* diskAccessName() {
  static const auto* access = [] {
    auto* plain = sqlite3_vfs_find("unix");
    return plain ? new DiskAccess(*plain) : nullptr;
  }();
  return access ? access->name() : nullptr;
}

std::uint64_t failedReads() { return readFailures; }

}  // namespace kite::Linux
