#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kite::Linux {

/// An open file of a store. Each operation says whether it succeeded; `Disk::error` says why not.
class DiskFile {
 public:
  virtual ~DiskFile() = default;
  virtual std::optional<std::uint64_t> size() const = 0;
  /// `size` bytes from `offset`, fewer at the end of the file; nothing when they cannot be read.
  virtual std::optional<std::string> read(std::uint64_t offset, std::size_t size) const = 0;
  /// When it fails some of the bytes may be there.
  virtual bool write(std::uint64_t offset, std::string_view bytes) = 0;
  virtual bool cut(std::uint64_t size) = 0;
  /// Puts what was written on the medium. May run beside a write of another thread.
  virtual bool sync() = 0;
  /// False once the file was removed from its folder.
  virtual bool isLinked() const = 0;
};

/// What a store asks of the disk: the files of one folder, by name. The real one is `FolderDisk`;
/// tests have one in memory that tears writes, fills up and loses what was not synced.
class Disk {
 public:
  virtual ~Disk() = default;
  virtual std::optional<std::vector<std::string>> names() const = 0;
  /// Null when the file is missing or cannot be had.
  virtual std::unique_ptr<DiskFile> open(const std::string& name) = 0;
  /// A new, empty file in place of any of that name.
  virtual std::unique_ptr<DiskFile> make(const std::string& name) = 0;
  virtual bool rename(const std::string& from, const std::string& to) = 0;
  virtual bool remove(const std::string& name) = 0;
  /// Makes the files that were made, renamed and removed so on the medium.
  virtual bool sync() = 0;
  /// Why the last operation that failed did so, for a person.
  virtual std::string error() const = 0;
};

}  // namespace kite::Linux
