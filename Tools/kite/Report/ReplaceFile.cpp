#include "Report/ReplaceFile.h"

#include "Common/CommandFailure.h"
#include "Common/WriteAll.h"

#include <fmt/format.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace kite::tool {
namespace {

/// A file of a name that nobody has, which goes unless it is given its own.
class FreshFile {
 public:
  explicit FreshFile(std::string path) : _path(std::move(path)), _fresh(_path + ".XXXXXX") {
    _file = ::mkstemp(_fresh.data());
    if (_file < 0) fail();
  }
  ~FreshFile() {
    if (_file < 0) return;
    ::close(_file);
    ::unlink(_fresh.c_str());
  }
  FreshFile(const FreshFile&) = delete;
  FreshFile& operator=(const FreshFile&) = delete;

  void write(std::string_view bytes) const {
    const mode_t mask = ::umask(0);
    ::umask(mask);
    ::fchmod(_file, 0666 & ~mask);  // as any new file
    writeAll(_file, bytes);
  }

  void putInPlace() {
    const bool isWritten = ::close(_file) == 0;
    _file = -1;
    if (isWritten && std::rename(_fresh.c_str(), _path.c_str()) == 0) return;
    const int reason = errno;
    ::unlink(_fresh.c_str());
    errno = reason;
    fail();
  }

 private:
  [[noreturn]] void fail() const {
    throw CommandFailure(fmt::format("cannot write {}: {}", _path, std::strerror(errno)));
  }

  std::string _path;
  std::string _fresh;
  int _file = -1;
};

}  // namespace

void replaceFile(const std::string& path, std::string_view bytes) {
  FreshFile file(path);
  file.write(bytes);
  file.putInPlace();
}

}  // namespace kite::tool
