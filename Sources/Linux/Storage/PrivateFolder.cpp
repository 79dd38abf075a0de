#include "Linux/Storage/PrivateFolder.h"

#include "Linux/Storage/Uninterrupted.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <system_error>

namespace kite::Linux {

namespace {

constexpr mode_t folderMode = 0700;
constexpr mode_t fileMode = 0600;
constexpr mode_t othersMay = 0077;

std::string because(const std::filesystem::path& path) {
  return path.string() + ": " + std::system_category().message(errno);
}

bool makePath(const std::filesystem::path& path) {
  if (path.empty() || ::mkdir(path.c_str(), folderMode) == 0 || errno == EEXIST) return true;
  if (errno != ENOENT || !path.has_relative_path()) return false;
  if (!makePath(path.parent_path())) return false;
  return ::mkdir(path.c_str(), folderMode) == 0 || errno == EEXIST;
}

bool writeAll(const FileDescriptor& file, std::string_view contents) {
  while (!contents.empty()) {
    const auto written =
        uninterrupted([&] { return ::write(file.get(), contents.data(), contents.size()); });
    if (written <= 0) return false;
    contents.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

}  // namespace

Result<PrivateFolder, std::string> PrivateFolder::open(const std::filesystem::path& given,
                                                       bool make) {
  const auto path = given.has_filename() ? given : given.parent_path();
  if (make && !makePath(path)) return Failure{because(path)};
  FileDescriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat status {};
  if (!folder || ::fstat(folder.get(), &status) != 0) return Failure{because(path)};
  if (status.st_uid != ::geteuid()) return Failure{path.string() + " belongs to another user"};
  if (make && (status.st_mode & othersMay) != 0) ::fchmod(folder.get(), folderMode);
  std::error_code error;
  auto real = std::filesystem::canonical(path, error);
  if (error) return Failure{path.string() + ": " + error.message()};
  return PrivateFolder(std::move(real), std::move(folder));
}

namespace {

const char* refusal(const struct stat& status) {
  if (S_ISLNK(status.st_mode)) return " is a symbolic link";
  if (!S_ISREG(status.st_mode)) return " is not a plain file";
  if (status.st_uid != ::geteuid()) return " belongs to another user";
  if (status.st_nlink > 1) return " is also reachable under another name";
  return nullptr;
}

}  // namespace

std::optional<std::string> PrivateFolder::fault(const std::string& name) const {
  struct stat status {};
  if (::fstatat(_folder.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
    return because(_path / name);
  const char* refused = refusal(status);
  return refused ? std::optional((_path / name).string() + refused) : std::nullopt;
}

Result<FileDescriptor, std::string> PrivateFolder::openFile(const std::string& name,
                                                            int flags) const {
  FileDescriptor file(
      ::openat(_folder.get(), name.c_str(), flags | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK, fileMode));
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0) {
    auto reason = because(_path / name);
    return Failure{exists(name) ? fault(name).value_or(std::move(reason)) : std::move(reason)};
  }
  if (const char* refused = refusal(status)) return Failure{(_path / name).string() + refused};
  if ((status.st_mode & othersMay) != 0) ::fchmod(file.get(), fileMode);
  return file;
}

bool PrivateFolder::replaceFile(const std::string& name, std::string_view contents) const {
  const auto fresh = name + ".new";
  remove(fresh);
  const auto file = openFile(fresh, O_RDWR | O_CREAT | O_EXCL);
  if (!file || !writeAll(*file, contents) || ::fsync(file->get()) != 0) return false;
  if (!rename(fresh, name)) return false;
  synchronize();
  return true;
}

bool PrivateFolder::exists(const std::string& name) const {
  return ::faccessat(_folder.get(), name.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0;
}

bool PrivateFolder::isMissing(const std::string& name) const {
  struct stat status {};
  return ::fstatat(_folder.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0 &&
         errno == ENOENT;
}

std::optional<std::size_t> PrivateFolder::sizeOf(const std::string& name) const {
  struct stat status {};
  if (::fstatat(_folder.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
    return std::nullopt;
  return static_cast<std::size_t>(status.st_size);
}

bool PrivateFolder::rename(const std::string& from, const std::string& to) const {
  return ::renameat(_folder.get(), from.c_str(), _folder.get(), to.c_str()) == 0;
}

bool PrivateFolder::remove(const std::string& name) const {
  return ::unlinkat(_folder.get(), name.c_str(), 0) == 0 || errno == ENOENT;
}

bool PrivateFolder::synchronize() const { return ::fsync(_folder.get()) == 0; }

FileDescriptor openForReading(const std::filesystem::path& file) {
  return FileDescriptor(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
}

std::optional<std::string> readBeginning(const FileDescriptor& file, std::size_t size) {
  std::string contents;
  char piece[4096];
  ::lseek(file.get(), 0, SEEK_SET);
  while (contents.size() < size) {
    const auto wanted = std::min(sizeof piece, size - contents.size());
    const auto count = uninterrupted([&] { return ::read(file.get(), piece, wanted); });
    if (count < 0) return std::nullopt;
    if (count == 0) break;
    contents.append(piece, static_cast<std::size_t>(count));
  }
  return contents;
}

std::optional<std::string> readAll(const FileDescriptor& file, std::size_t limit) {
  auto contents = readBeginning(file, limit + 1);
  return contents && contents->size() <= limit ? contents : std::nullopt;
}

std::optional<std::string> readFile(const std::filesystem::path& file, std::size_t limit) {
  const auto open = openForReading(file);
  return open ? readAll(open, limit) : std::nullopt;
}

}  // namespace kite::Linux
