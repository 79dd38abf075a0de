#pragma once

#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <limits>

namespace kite::test {

/// While it lives, some of SQLite's reads of files, or of its calls for locks, fail with EIO.
/// One at a time, and without other threads that use SQLite.
class FailingCalls {
 public:
  enum class Kind { read, lock };
  static constexpr int allThatFollow = std::numeric_limits<int>::max() / 2;

  /// So many from the `first`, which counts from 1.
  FailingCalls(Kind kind, int first, int count) : _kind(kind) {
    remaining() = {first, first + count, 0};
    install(true);
  }
  ~FailingCalls() { install(false); }
  FailingCalls(const FailingCalls&) = delete;
  FailingCalls& operator=(const FailingCalls&) = delete;

  static bool haveStruck() { return remaining().made >= remaining().first; }

 private:
  using Call = sqlite3_syscall_ptr;
  struct Remaining {
    int first = 0, end = 0, made = 0;
  };

  static Remaining& remaining() {
    static Remaining calls;
    return calls;
  }
  static bool strikes() {
    auto& calls = remaining();
    ++calls.made;
    errno = EIO;
    return calls.made >= calls.first && calls.made < calls.end;
  }
  static ssize_t read(int file, void* bytes, size_t size, off_t place) {
    return strikes() ? -1 : ::pread(file, bytes, size, place);
  }
  static int lock(int file, int command, ...) {
    va_list arguments;
    va_start(arguments, command);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    return strikes() ? -1 : ::fcntl(file, command, argument);
  }

  void install(bool areFailing) const {
    const auto set = [&](const char* name, Call failing) {
      auto* vfs = sqlite3_vfs_find("unix");
      vfs->xSetSystemCall(vfs, name, areFailing ? failing : nullptr);
    };
    if (_kind == Kind::lock) return set("fcntl", reinterpret_cast<Call>(lock));
    set("pread", reinterpret_cast<Call>(read));
    set("pread64", reinterpret_cast<Call>(read));
  }

  Kind _kind;
};

}  // namespace kite::test
