#pragma once

#include <sys/resource.h>

namespace kite::test {

/// For as long as it lives no file of this process may become longer than so many bytes. Nothing
/// else may write to a file meanwhile, the test's own output neither.
class FullDisk {
 public:
  explicit FullDisk(rlim_t size = 0) {
    ::getrlimit(RLIMIT_FSIZE, &_previous);
    const rlimit limit{size, _previous.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FullDisk() { ::setrlimit(RLIMIT_FSIZE, &_previous); }
  FullDisk(const FullDisk&) = delete;
  FullDisk& operator=(const FullDisk&) = delete;

 private:
  rlimit _previous{};
};

}  // namespace kite::test
