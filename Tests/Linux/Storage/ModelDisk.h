#pragma once

#include "Linux/Storage/Disk.h"

#include <algorithm>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kite::test {

/// The files of one folder in memory, which outlive the disks that work on them.
///
/// Every call that changes something is counted. The one that `dieAt` names is made by half, and
/// all that follow do nothing: so a process ends. `failAt` makes one call fail, by half as well.
class ModelFolder {
 public:
  struct File {
    std::string bytes;
    std::string synced;
  };
  using Files = std::map<std::string, std::shared_ptr<File>>;

  static constexpr int never = std::numeric_limits<int>::max();

  Files files;
  int dieAt = never;
  int failAt = never;
  int changes = 0;

  bool isAlive() const { return changes < dieAt; }
  /// A new process on the same files.
  void restart() {
    dieAt = failAt = never;
    changes = 0;
  }
  /// What a power cut leaves: files as they were synced last. Names are taken to be on the medium.
  void cutPower() {
    for (auto& [name, file] : files) file->bytes = file->synced;
  }
  std::map<std::string, std::string> contents() const {
    std::map<std::string, std::string> all;
    for (const auto& [name, file] : files) all.emplace(name, file->bytes);
    return all;
  }
  void restore(const std::map<std::string, std::string>& contents) {
    files.clear();
    for (const auto& [name, bytes] : contents)
      files.emplace(name, std::make_shared<File>(File{bytes, bytes}));
  }

  /// So many calls that read fail, from the `first` on, which counts from 0.
  void failReads(int first, int count) {
    _reads = 0;
    _firstFailing = first;
    _failing = count;
  }
  bool haveReadsFailed() const { return _reads > _firstFailing; }
  bool canRead() {
    const auto number = _reads++;
    return number < _firstFailing || number - _firstFailing >= _failing;
  }

  enum class Call { done, half, nothing };
  Call change() {
    const auto number = changes++;
    if (number == dieAt || number == failAt) return Call::half;
    return number > dieAt ? Call::nothing : Call::done;
  }

 private:
  int _reads = 0;
  int _firstFailing = never;
  int _failing = 0;
};

class ModelDisk final : public Linux::Disk {
 public:
  explicit ModelDisk(ModelFolder& folder) : _folder(folder) {}

  std::optional<std::vector<std::string>> names() const override {
    if (!_folder.canRead()) return std::nullopt;
    std::vector<std::string> names;
    for (const auto& [name, file] : _folder.files) names.push_back(name);
    return names;
  }
  std::unique_ptr<Linux::DiskFile> open(const std::string& name) override {
    const auto found = _folder.files.find(name);
    if (found == _folder.files.end() || !_folder.canRead()) return nullptr;
    return std::make_unique<OpenFile>(_folder, found->second);
  }
  std::unique_ptr<Linux::DiskFile> make(const std::string& name) override {
    if (_folder.change() != ModelFolder::Call::done) return nullptr;
    auto file = std::make_shared<ModelFolder::File>();
    _folder.files.insert_or_assign(name, file);
    return std::make_unique<OpenFile>(_folder, std::move(file));
  }
  bool rename(const std::string& from, const std::string& to) override {
    if (_folder.change() != ModelFolder::Call::done) return false;
    auto file = _folder.files.extract(from);
    if (!file) return false;
    _folder.files.insert_or_assign(to, file.mapped());
    return true;
  }
  bool remove(const std::string& name) override {
    if (_folder.change() != ModelFolder::Call::done) return false;
    _folder.files.erase(name);
    return true;
  }
  bool sync() override { return _folder.change() == ModelFolder::Call::done; }
  std::string error() const override { return "model error"; }

 private:
  class OpenFile final : public Linux::DiskFile {
   public:
    OpenFile(ModelFolder& folder, std::shared_ptr<ModelFolder::File> file)
        : _folder(folder), _file(std::move(file)) {}

    std::optional<std::uint64_t> size() const override {
      return _folder.canRead() ? std::optional(_file->bytes.size()) : std::nullopt;
    }
    std::optional<std::string> read(std::uint64_t offset, std::size_t size) const override {
      if (!_folder.canRead()) return std::nullopt;
      return offset < _file->bytes.size() ? _file->bytes.substr(offset, size) : "";
    }
    bool write(std::uint64_t offset, std::string_view bytes) override {
      const auto call = _folder.change();
      if (call == ModelFolder::Call::nothing) return false;
      if (call == ModelFolder::Call::half) bytes = bytes.substr(0, bytes.size() / 2);
      auto& all = _file->bytes;
      if (all.size() < offset + bytes.size()) all.resize(offset + bytes.size());
      all.replace(offset, bytes.size(), bytes);
      return call == ModelFolder::Call::done;
    }
    bool cut(std::uint64_t size) override {
      if (_folder.change() != ModelFolder::Call::done) return false;
      _file->bytes.resize(size);
      return true;
    }
    bool sync() override {
      if (_folder.change() != ModelFolder::Call::done) return false;
      _file->synced = _file->bytes;
      return true;
    }
    bool isLinked() const override {
      return std::ranges::any_of(_folder.files,
                                 [&](const auto& file) { return file.second == _file; });
    }

   private:
    ModelFolder& _folder;
    std::shared_ptr<ModelFolder::File> _file;
  };

  ModelFolder& _folder;
};

}  // namespace kite::test
