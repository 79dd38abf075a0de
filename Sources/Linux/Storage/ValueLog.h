#pragma once

#include "Linux/Storage/StoreFiles.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>

namespace kite::Linux {

/// The form in which a value is saved.
enum class ValueKind : std::uint8_t { data = 1, list, number, dictionary };

struct SavedValue {
  ValueKind kind;
  std::string bytes;
};

/// The small values of a store: each change is appended to one file, which is rewritten with the
/// living values once it has grown. One thread at a time.
class ValueLog {
 public:
  static constexpr const char* fileName = "values.log";

  using Values = std::map<std::string, SavedValue, std::less<>>;

  /// Reads the file; null when that fails. `lastChange` is what the witness knows.
  static std::unique_ptr<ValueLog> load(Disk& disk, std::uint64_t store, std::uint64_t lastChange,
                                        Damages& damages);
  /// An empty log without a file, for a store whose value file is missing.
  static std::unique_ptr<ValueLog> none(Disk& disk);
  /// A new file with nothing in it.
  static std::unique_ptr<ValueLog> make(Disk& disk, std::uint64_t store);

  const Values& values() const { return _values; }
  bool put(std::string_view key, SavedValue value);
  bool remove(std::string_view key);
  /// Whether there is a value that is no list.
  bool holdsBytes(std::string_view key) const;
  /// The number of the last change.
  std::uint64_t lastChange() const { return _lastChange; }

  /// Whether so much of the file is of no use that it should be rewritten.
  bool isGrown() const;
  /// Puts a file in place that holds the living values only. When it fails all is as before.
  bool rewrite();
  const std::shared_ptr<LogFile>& file() const { return _file; }
  bool isLinked() const { return _file->isLinked(); }

 private:
  ValueLog(Disk& disk, std::uint64_t store, std::unique_ptr<LogFile> file)
      : _disk(disk), _store(store), _file(std::move(file)) {}

  void read(std::string_view file, std::uint64_t lastChange, Damages& damages);
  void learn(const Record& record);
  bool appendChange(Record record);

  Disk& _disk;
  std::uint64_t _store;
  std::shared_ptr<LogFile> _file;
  Values _values;
  std::uint64_t _lastChange = 0;
};

}  // namespace kite::Linux
