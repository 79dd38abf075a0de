#include "Linux/Storage/DiskAccess.h"

#include <sqlite3.h>

#include <algorithm>
#include <cstddef>
#include <map>
#include <mutex>
#include <string>

namespace kite::Linux {

namespace {

constexpr int longestPause = 1000;  // microseconds

thread_local std::uint64_t readFailures = 0;

struct FileMethods : sqlite3_io_methods {
  const sqlite3_io_methods* plain;
  std::size_t plainSize;
};

/// What stands behind SQLite's own data of a file: the ways of the locks that it still holds after
/// it was to let go of them, or 0.
struct OwedUnlocks {
  int flags[SQLITE_SHM_NLOCK];
};

const FileMethods& methodsOf(sqlite3_file* file) {
  return *static_cast<const FileMethods*>(file->pMethods);
}

OwedUnlocks& owedBy(sqlite3_file* file) {
  return *reinterpret_cast<OwedUnlocks*>(reinterpret_cast<char*>(file) + methodsOf(file).plainSize);
}

int read(sqlite3_file* file, void* bytes, int size, sqlite3_int64 place) {
  const int code = methodsOf(file).plain->xRead(file, bytes, size, place);
  if (code == SQLITE_OK || code == SQLITE_IOERR_SHORT_READ) return code;
  ++readFailures;
  return code == SQLITE_IOERR_CORRUPTFS ? SQLITE_IOERR_READ : code;
}

bool unlockOwed(sqlite3_file* file) {
  int number = 0;
  for (auto& flags : owedBy(file).flags) {
    if (flags != 0 && methodsOf(file).plain->xShmLock(file, number, 1, flags) == SQLITE_OK)
      flags = 0;
    ++number;
  }
  return std::ranges::all_of(owedBy(file).flags, [](int flags) { return flags == 0; });
}

int lock(sqlite3_file* file, int first, int count, int flags) {
  const bool isUnlock = (flags & SQLITE_SHM_UNLOCK) != 0;
  if (!unlockOwed(file) && !isUnlock) return SQLITE_BUSY;
  const int code = methodsOf(file).plain->xShmLock(file, first, count, flags);
  if (isUnlock && code != SQLITE_OK) std::fill_n(owedBy(file).flags + first, count, flags);
  return code;
}

/// Lives to the end of the process, of which nobody knows who still has a file open then.
class DiskAccess {
 public:
  explicit DiskAccess(sqlite3_vfs& plain)
      : _plain(plain), _vfs(plain), _plainSize(roundedUp(plain.szOsFile)) {
    _vfs.zName = _name.c_str();
    _vfs.pAppData = this;
    _vfs.szOsFile = static_cast<int>(_plainSize + sizeof(OwedUnlocks));
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
    file->pMethods = access.methodsFor(file->pMethods);
    owedBy(file) = {};
    return code;
  }

  static int sleep(sqlite3_vfs* vfs, int microseconds) {
    auto& plain = of(vfs)._plain;
    return plain.xSleep(&plain, std::min(microseconds, longestPause));
  }

  const sqlite3_io_methods* methodsFor(const sqlite3_io_methods* plain) {
    const std::scoped_lock guard(_mutex);
    const auto [found, isNew] =
        _methods.try_emplace(plain, FileMethods{{*plain}, plain, _plainSize});
    if (isNew) {
      found->second.xRead = read;
      if (plain->iVersion >= 2) found->second.xShmLock = lock;
    }
    return &found->second;
  }

  const std::string _name = "kite";
  sqlite3_vfs& _plain;
  sqlite3_vfs _vfs;
  const std::size_t _plainSize;
  std::mutex _mutex;
  std::map<const sqlite3_io_methods*, FileMethods> _methods;  // by the plain ones, which are few
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
