#pragma once

#include <Kite/Base/Result.h>
#include <Kite/Platform/System.h>

#include "Linux/Storage/RowLog.h"
#include "Linux/Storage/ValueLog.h"
#include "Linux/Storage/Witness.h"

#include <memory>
#include <string>
#include <vector>

namespace kite::Linux {

/// All files of one store. One thread at a time.
///
/// Every file names the store that it belongs to. What most of them say counts; a file that says
/// something else, or is no file of a store, is renamed and left alone. Values are read at once,
/// rows when `loadRows` is called.
class StoreLogs {
 public:
  using Opened = Result<std::unique_ptr<StoreLogs>, std::string>;

  static constexpr const char* lockName = "lock";
  static bool isLog(std::string_view fileName);
  /// Whether a file is the store's by its name.
  static bool isPart(std::string_view fileName);

  /// For the owner: what is missing is made, what is damaged is mended. `print` gets a line when
  /// something was lost. The error is one line for a person; the files are then as they were.
  static Opened own(std::shared_ptr<Disk> disk, const std::string& title, const System& system);
  /// Beside a live owner: nothing is written. All is read at once.
  static Opened inspect(std::shared_ptr<Disk> disk, const std::string& title, const System& system);

  bool readValues(const ValueLog::Take& take) const { return _values->readAll(take); }
  bool put(std::string_view key, const SavedValue& value);
  bool remove(std::string_view key);

  /// False when they cannot be read. Until it succeeds the store has no lists.
  bool loadRows();
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
  /// The files whose `sync`, on any thread, puts all that was written on the medium; to be told
  /// when they are synced.
  std::vector<std::shared_ptr<LogFile>> unsynced() const;
  void wereSynced(const std::vector<std::shared_ptr<LogFile>>& files);
  bool syncFolder() { return _disk->sync(); }
  /// False once files that are written to were removed by somebody else.
  bool areLinked() const { return _values->isLinked() && (!_rows || _rows->isLinked()); }

  const Damages& damages() const { return _damages; }
  std::string error() const { return _disk->error(); }

 private:
  StoreLogs(std::shared_ptr<Disk> disk, const std::string& title, const System& system)
      : _disk(std::move(disk)), _title(title), _system(system) {}

  bool identify();
  bool loadValues();
  bool readRows();
  void begin();
  void setAside(const std::string& name);
  Witness::State state() const;
  void settle();

  std::shared_ptr<Disk> _disk;
  std::string _title;
  System _system;
  std::vector<std::string> _names;  // of the files that are the store's
  Witness::State _known;
  std::map<std::string, std::uint32_t, std::less<>> _listNumbers;  // by key, as the values say
  std::vector<std::string> _foreign;
  Damages _damages;
  std::unique_ptr<ValueLog> _values;
  std::unique_ptr<RowLog> _rows;
  std::unique_ptr<Witness> _witness;
};

}  // namespace kite::Linux
