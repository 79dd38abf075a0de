#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

namespace kite::test {

/// For as long as it lives a file, which nobody may have open, is there and cannot be opened.
class FileLease {
 public:
  explicit FileLease(const std::filesystem::path& file) : _file(::open(file.c_str(), O_RDWR)) {
    ::fcntl(_file, F_SETSIG, SIGURG);  // which is ignored
    _isHeld = ::fcntl(_file, F_SETLEASE, F_WRLCK) == 0;
  }
  ~FileLease() { ::close(_file); }
  FileLease(const FileLease&) = delete;
  FileLease& operator=(const FileLease&) = delete;

  bool isHeld() const { return _isHeld; }

 private:
  int _file;
  bool _isHeld;
};

}  // namespace kite::test
