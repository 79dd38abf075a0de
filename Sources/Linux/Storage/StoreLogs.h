#pragma once

#include <Kite/Base/Result.h>
#include <Kite/Platform/System.h>

#include "Linux/Storage/PrivateFolder.h"
#include "Linux/Storage/RowLog.h"
#include "Linux/Storage/ValueLog.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kite::Linux {

struct StoreName {
  std::string title;   ///< for console lines
  std::string prefix;  ///< of its files
  std::string former;  ///< the database of an earlier format, which is set aside
  bool isSecret;       ///< values are sealed, and on the medium within a second
};

inline StoreName keyValueStoreName() { return {"key-value store", "kv.", "kv.sqlite", false}; }
inline StoreName secretsStoreName() {
  return {"secrets store", "secrets.", "secrets.sqlite", true};
}

/// All files of one store. One thread at a time, but for what says otherwise.
///
/// Every file names the store that it belongs to. What most of them say counts; a file that says
/// something else, or is no file of a store, is renamed and left alone. Values are read at once,
/// rows later.
class StoreLogs {
 public:
  using Opened = Result<std::unique_ptr<StoreLogs>, std::string>;
  struct Rows {
    std::unique_ptr<RowLog> log;
    Damages damages;
  };

  static constexpr const char* lockName = "lock";
  /// Whether a file is the store's by its name.
  static bool isPart(std::string_view fileName);

  /// Makes this process the owner; the folder is made when it is missing. What is missing of the
  /// files is made, what is damaged is mended; the console is told when something was lost. The
  /// error is one line for a person; the files are then as they were.
  static Opened own(const std::filesystem::path& path, const StoreName& name, const System& system);
  /// Beside a live owner: nothing is written. All is read at once.
  static Opened inspect(const std::filesystem::path& path, const StoreName& name);
  /// The same on any disk. Nobody else is kept from it.
  static Opened own(std::shared_ptr<Disk> disk, const std::string& title, const System& system);
  static Opened inspect(std::shared_ptr<Disk> disk, const std::string& title, const System& system);

  const ValueLog::Values& values() const { return _values->values(); }
  bool put(std::string_view key, SavedValue value);
  bool remove(std::string_view key);

  /// Nothing when they cannot be read. Any thread, for it changes nothing: what it gives counts
  /// once it is taken.
  std::optional<Rows> readRows() const;
  void takeRows(Rows rows);
  bool loadRows();
  /// Before, the store has no lists.
  bool hasRows() const { return _rows != nullptr; }
  std::vector<std::string> listKeys() const;
  RowLog::Outcome readList(std::string_view key, Larder::SavedList& list);
  RowLog::Outcome edit(std::string_view key, const Larder::ListEdit& edit, RowLog::Placed& placed);
  bool endList(std::string_view key);

  std::uint64_t store() const { return _known.store; }
  bool isEmpty() const;
  const std::shared_ptr<LogFile>& valuesFile() const { return _values->file(); }
  bool isGrown() const { return _values->isGrown(); }
  void rewriteValues() { _values->rewrite(); }
  /// The files whose `sync`, on any thread, puts all that was written on the medium.
  std::vector<std::shared_ptr<LogFile>> unsynced();
  bool syncFolder() { return _disk->sync(); }
  /// False once files that are written to were removed by somebody else.
  bool areLinked() const { return _values->isLinked() && (!_rows || _rows->isLinked()); }

  /// Null on a disk that is no folder.
  const std::shared_ptr<const PrivateFolder>& folder() const { return _folder; }
  std::string error() const { return _disk->error(); }

 private:
  StoreLogs(std::shared_ptr<Disk> disk, const std::string& title, const System& system)
      : _disk(std::move(disk)), _title(title), _system(system) {}

  bool identify();
  bool loadValues();
  void begin();
  void setAside(const std::string& name);
  Witness witness() const;
  void settle();
  bool settled(bool isDone);

  std::shared_ptr<const PrivateFolder> _folder;
  FileDescriptor _lock;
  std::shared_ptr<Disk> _disk;
  std::string _title;
  System _system;
  std::vector<std::string> _names;  // of the files that are the store's
  Witness _known;                   // when it was opened
  std::string _lockHead;
  std::map<std::string, std::uint32_t, std::less<>> _listNumbers;  // by key, as the values say
  std::vector<std::string> _foreign;
  Damages _damages;
  std::unique_ptr<ValueLog> _values;
  std::unique_ptr<RowLog> _rows;
  std::unique_ptr<DiskFile> _state;
  Witness _told;  // by the file
};

}  // namespace kite::Linux
