#pragma once

#include <Kite/Base/Result.h>

#include "Linux/Storage/FileDescriptor.h"

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace kite::Linux {

/// A folder that nobody but this user can look into, with files of the same kind.
///
/// Links and what belongs to other users are refused: whoever could put them there could read or
/// redirect what is written. Errors are one line for a person.
class PrivateFolder {
 public:
  /// With `make`, whatever is missing of the path is made.
  static Result<PrivateFolder, std::string> open(const std::filesystem::path& path, bool make);

  /// Free of symbolic links.
  const std::filesystem::path& path() const { return _path; }

  /// Why a file must not be used, or nothing.
  std::optional<std::string> fault(const std::string& name) const;
  /// Opens a file, or makes it with O_CREAT in `flags`, and takes it from others' eyes.
  Result<FileDescriptor, std::string> openFile(const std::string& name, int flags) const;

  /// Puts a file with these contents in place, whole or not at all, and on the disk before it
  /// returns.
  bool replaceFile(const std::string& name, std::string_view contents) const;
  bool exists(const std::string& name) const;
  /// Whether it is certain that there is no such file; `exists` is not, when the disk fails.
  bool isMissing(const std::string& name) const;
  std::optional<std::size_t> sizeOf(const std::string& name) const;
  bool rename(const std::string& from, const std::string& to) const;
  /// A file that is not there is as good as removed.
  bool remove(const std::string& name) const;
  /// Makes changes of the folder itself survive a power failure.
  bool synchronize() const;

 private:
  PrivateFolder(std::filesystem::path path, FileDescriptor folder)
      : _path(std::move(path)), _folder(std::move(folder)) {}

  std::filesystem::path _path;
  FileDescriptor _folder;
};

FileDescriptor openForReading(const std::filesystem::path& file);

/// The first `size` bytes of a file, or all that it has; nothing when it cannot be read.
std::optional<std::string> readBeginning(const FileDescriptor& file, std::size_t size);

/// The whole of a file; nothing when it cannot be read or is longer than `limit`.
std::optional<std::string> readAll(const FileDescriptor& file, std::size_t limit);
std::optional<std::string> readFile(const std::filesystem::path& file, std::size_t limit);

}  // namespace kite::Linux
