#pragma once

#include "Base/Guarded.h"
#include "Linux/Storage/Disk.h"
#include "Linux/Storage/PrivateFolder.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kite::Linux {

/// The files of a private folder whose names begin with `prefix`, under what follows it. Links and
/// other users' files are refused.
class FolderDisk final : public Disk {
 public:
  enum class Access { readOnly, readWrite };
  FolderDisk(std::shared_ptr<const PrivateFolder> folder, std::string prefix, Access access)
      : _folder(std::move(folder)), _prefix(std::move(prefix)), _access(access) {}

  std::optional<std::vector<std::string>> names() const override;
  std::unique_ptr<DiskFile> open(const std::string& name) override;
  std::unique_ptr<DiskFile> make(const std::string& name) override;
  bool rename(const std::string& from, const std::string& to) override;
  bool remove(const std::string& name) override;
  bool sync() override;
  std::string error() const override;

 private:
  std::unique_ptr<DiskFile> file(const std::string& name, int flags);
  bool succeeded(bool isDone) const;

  std::shared_ptr<const PrivateFolder> _folder;
  std::string _prefix;
  Access _access;
  bool _isChanged = false;  ///< since the last `sync`
  std::shared_ptr<Guarded<std::string>> _error = std::make_shared<Guarded<std::string>>();
};

}  // namespace kite::Linux
