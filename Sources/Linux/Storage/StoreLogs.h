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

/// All files of one store, opened together. One thread at a time.
///
/// Every file names the store that it belongs to. What most of them say counts; a file that says
/// something else, or is no file of a store, is renamed and left alone.
class StoreLogs {
 public:
  using Opened = Result<std::unique_ptr<StoreLogs>, std::string>;

  static constexpr const char* lockName = "lock";

  /// For the owner: what is missing is made, what is damaged is mended. `print` gets a line when
  /// something was lost. The error is one line for a person; the files are then as they were.
  static Opened own(std::unique_ptr<Disk> disk, const std::string& title, const System& system);
  /// Beside a live owner: nothing is written.
  static Opened inspect(std::unique_ptr<Disk> disk);

  bool readValues(const ValueLog::Take& take) const { return _values->readAll(take); }
  bool put(std::string_view key, const SavedValue& value);
  bool remove(std::string_view key);

  std::vector<std::string> listKeys() const { return _rows->keys(); }
  RowLog::Outcome readList(std::string_view key, Larder::ListReader& reader, std::size_t& damaged);
  RowLog::Outcome edit(std::string_view key, const Larder::ListEdit& edit);
  bool endList(std::string_view key);
  /// Drops what `readList` found damaged.
  void mendLists();

  std::uint64_t store() const { return _known.store; }
  bool isEmpty() const { return _values->isEmpty() && _rows->keys().empty(); }
  const std::shared_ptr<LogFile>& valuesFile() const { return _values->file(); }
  bool isGrown() const { return _values->isGrown(); }
  void rewriteValues() { _values->rewrite(); }
  /// The files whose `sync`, on any thread, puts all that was written on the medium.
  std::vector<std::shared_ptr<LogFile>> takeUnsynced();
  bool syncFolder() { return _disk->sync(); }
  /// False once files that are written to were removed by somebody else.
  bool areLinked() const { return _values->isLinked() && _rows->isLinked(); }

  const Damages& damages() const { return _damages; }
  std::string error() const { return _disk->error(); }

 private:
  explicit StoreLogs(std::unique_ptr<Disk> disk) : _disk(std::move(disk)) {}

  bool identify(const std::vector<std::string>& names);
  bool load(const std::vector<std::string>& names);
  void begin();
  void setAside(const std::string& name, const System& system);
  Witness::State state() const;
  void settle();

  std::unique_ptr<Disk> _disk;
  Witness::State _known;
  std::vector<std::string> _foreign;
  Damages _damages;
  std::unique_ptr<ValueLog> _values;
  std::unique_ptr<RowLog> _rows;
  std::unique_ptr<Witness> _witness;
};

}  // namespace kite::Linux
