#pragma once

#include <unistd.h>

#include <utility>

namespace kite::Linux {

/// An open file, closed when its owner goes.
class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int descriptor) : _descriptor(descriptor) {}
  FileDescriptor(FileDescriptor&& other) noexcept
      : _descriptor(std::exchange(other._descriptor, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(_descriptor, other._descriptor);
    return *this;
  }
  ~FileDescriptor() {
    if (_descriptor >= 0) ::close(_descriptor);
  }

  int get() const { return _descriptor; }
  explicit operator bool() const { return _descriptor >= 0; }

 private:
  int _descriptor = -1;
};

}  // namespace kite::Linux
