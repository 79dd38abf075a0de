#pragma once

#include "Linux/Storage/StoreFiles.h"

#include <cstdint>
#include <functional>
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

  using Take = std::function<void(std::string_view key, SavedValue value)>;

  /// Reads the file; null when that fails. `lastChange` is what the witness knows.
  static std::unique_ptr<ValueLog> load(Disk& disk, std::uint64_t store, std::uint64_t lastChange,
                                        Damages& damages);
  /// Nothing, beside a store whose file is missing.
  static std::unique_ptr<ValueLog> none(Disk& disk);
  /// A new file with nothing in it.
  static std::unique_ptr<ValueLog> make(Disk& disk, std::uint64_t store);

  /// Hands over every value, sorted by key.
  bool readAll(const Take& take) const;

  bool put(std::string_view key, const SavedValue& value);
  bool remove(std::string_view key);
  bool isEmpty() const { return _places.empty(); }
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
  struct Place {
    std::uint64_t offset;
    std::size_t size;
    ValueKind kind;
  };

  ValueLog(Disk& disk, std::uint64_t store, std::unique_ptr<LogFile> file)
      : _disk(disk), _store(store), _file(std::move(file)) {}

  void read(std::string_view file, std::uint64_t lastChange, Damages& damages);
  void learn(const Record& record, std::uint64_t end);
  void place(std::string key, std::uint64_t end, const Record& record);
  void forget(std::string_view key);
  bool appendChange(const Record& record);

  Disk& _disk;
  std::uint64_t _store;
  std::shared_ptr<LogFile> _file;
  std::map<std::string, Place, std::less<>> _places;
  std::uint64_t _lastChange = 0;
  std::uint64_t _living = 0;  ///< bytes
};

}  // namespace kite::Linux
