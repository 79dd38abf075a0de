#include "Linux/Storage/FolderDisk.h"

#include "Base/Guarded.h"
#include "Linux/Storage/Uninterrupted.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace kite::Linux {

namespace {

class FolderFile final : public DiskFile {
 public:
  FolderFile(FileDescriptor file, std::shared_ptr<Guarded<std::string>> error)
      : _file(std::move(file)), _error(std::move(error)) {}

  std::optional<std::uint64_t> size() const override {
    struct stat status {};
    if (::fstat(_file.get(), &status) != 0) return fail(), std::nullopt;
    return static_cast<std::uint64_t>(status.st_size);
  }

  std::optional<std::string> read(std::uint64_t offset, std::size_t size) const override {
    std::string bytes(size, '\0');
    std::size_t done = 0;
    while (done < size) {
      const auto count = uninterrupted([&] {
        return ::pread(_file.get(), bytes.data() + done, size - done,
                       static_cast<off_t>(offset + done));
      });
      if (count < 0) return fail(), std::nullopt;
      if (count == 0) break;
      done += static_cast<std::size_t>(count);
    }
    bytes.resize(done);
    return bytes;
  }

  bool write(std::uint64_t offset, std::string_view bytes) override {
    while (!bytes.empty()) {
      const auto count = uninterrupted([&] {
        return ::pwrite(_file.get(), bytes.data(), bytes.size(), static_cast<off_t>(offset));
      });
      if (count <= 0) return fail();
      bytes.remove_prefix(static_cast<std::size_t>(count));
      offset += static_cast<std::uint64_t>(count);
    }
    return true;
  }

  bool cut(std::uint64_t size) override {
    return ::ftruncate(_file.get(), static_cast<off_t>(size)) == 0 || fail();
  }
  bool sync() override {
    return uninterrupted([&] { return ::fdatasync(_file.get()); }) == 0 || fail();
  }
  bool isLinked() const override {
    struct stat status {};
    return ::fstat(_file.get(), &status) != 0 || status.st_nlink > 0;
  }

 private:
  bool fail() const {
    _error->set(std::system_category().message(errno));
    return false;
  }

  FileDescriptor _file;
  std::shared_ptr<Guarded<std::string>> _error;
};

struct CloseFolder {
  void operator()(DIR* folder) const { ::closedir(folder); }
};

}  // namespace

bool FolderDisk::succeeded(bool isDone) const {
  if (!isDone) _error->set(std::system_category().message(errno));
  return isDone;
}

std::optional<std::vector<std::string>> FolderDisk::names() const {
  const std::unique_ptr<DIR, CloseFolder> folder(::opendir(_folder->path().c_str()));
  if (!succeeded(folder != nullptr)) return std::nullopt;
  std::vector<std::string> names;
  errno = 0;
  while (const auto* entry = ::readdir(folder.get())) {
    const std::string_view name = entry->d_name;
    if (name.starts_with(_prefix)) names.emplace_back(name.substr(_prefix.size()));
  }
  if (!succeeded(errno == 0)) return std::nullopt;
  return names;
}

std::unique_ptr<DiskFile> FolderDisk::open(const std::string& name) {
  return file(name, _access == Access::readOnly ? O_RDONLY : O_RDWR);
}

std::unique_ptr<DiskFile> FolderDisk::make(const std::string& name) {
  _isChanged = true;
  return remove(name) ? file(name, O_RDWR | O_CREAT | O_EXCL) : nullptr;
}

std::unique_ptr<DiskFile> FolderDisk::file(const std::string& name, int flags) {
  auto file = _folder->openFile(_prefix + name, flags);
  if (file) return std::make_unique<FolderFile>(*std::move(file), _error);
  _error->set(file.error());
  return nullptr;
}

bool FolderDisk::rename(const std::string& from, const std::string& to) {
  _isChanged = true;
  return succeeded(_folder->rename(_prefix + from, _prefix + to));
}

bool FolderDisk::remove(const std::string& name) {
  _isChanged = true;
  return succeeded(_folder->remove(_prefix + name));
}

bool FolderDisk::sync() {
  if (!_isChanged) return true;
  _isChanged = !succeeded(_folder->synchronize());
  return !_isChanged;
}

std::string FolderDisk::error() const { return _error->copy(); }

}  // namespace kite::Linux
