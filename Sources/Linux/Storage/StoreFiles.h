#pragma once

#include "Linux/Storage/Disk.h"
#include "Linux/Storage/Record.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kite::Linux {

/// What a store found wrong while it was read, for one console line.
class Damages {
 public:
  void add(const std::string& file, const std::string& what) {
    _found.push_back(file + " " + what);
  }
  void add(const Damages& others) {
    _found.insert(_found.end(), others._found.begin(), others._found.end());
  }
  bool empty() const { return _found.empty(); }
  std::string text() const;

 private:
  std::vector<std::string> _found;
};

/// What a file of a store begins with.
struct Head {
  static constexpr std::size_t size = 2 * (Record::headerSize + 8);
  std::uint64_t store;
  std::uint64_t lastEdit;  ///< the last one before the file was made
};

/// Its seed is zero, so that a reader who does not know the store yet can read it.
void appendHead(std::string& out, const Head& head);
/// Nothing when the beginning of the file is damaged.
std::optional<Head> headOf(std::string_view file);

/// How far the logs of a store reach; all that its file "state" says. A log that ends early at the
/// edge of a record looks whole; this tells that it is not. The file is written after the logs and
/// synced only before a segment is removed, so that it may be behind them, but is ahead of them
/// only after a loss.
struct Witness {
  static constexpr std::size_t size = 2 * (Record::headerSize + 32);
  std::uint64_t store = 0;
  std::uint64_t lastValue = 0;
  std::uint64_t lastEdit = 0;
  std::uint64_t firstSegment = 0;  ///< older ones are gone for good

  friend bool operator==(const Witness&, const Witness&) = default;
};

void appendWitness(std::string& out, const Witness& witness);
std::optional<Witness> witnessIn(std::string_view file);

/// The records behind the head, or all that can be found when there is none.
RecordScanner recordsOf(std::string_view file, std::uint64_t store);

/// A log's file, written at its end only. A write that fails leaves the end where it was, or, when
/// even that cannot be had, refuses all writes until it can.
class LogFile {
 public:
  enum class Sync { no, yes };

  /// Null when the file is missing or cannot be read.
  static std::unique_ptr<LogFile> open(Disk& disk, const std::string& name);
  /// Puts a file with these contents in place, whole or not at all; null when that fails.
  static std::unique_ptr<LogFile> make(Disk& disk, const std::string& name,
                                       std::string_view contents, Sync sync = Sync::no);

  std::uint64_t size() const { return _size; }
  std::optional<std::string> readAll() const { return _file->read(0, _size); }
  bool append(std::string_view bytes);
  /// False while remains of a write that failed cannot be cut off.
  bool cutRemains() { return !_endsWithRemains || cut(_size); }
  /// Takes back what was appended behind `size`.
  bool cut(std::uint64_t size);
  /// The same, by the next `append`.
  void endAt(std::uint64_t size) {
    _size = size;
    _endsWithRemains = true;
  }
  /// Puts on the medium what was written by now, if it is not there. Any thread, beside a write of
  /// another one.
  bool sync();
  bool isSynced() const { return _synced == _changes; }
  bool isLinked() const { return _file->isLinked(); }

 private:
  LogFile(std::unique_ptr<DiskFile> file, std::uint64_t size)
      : _file(std::move(file)), _size(size) {}

  std::unique_ptr<DiskFile> _file;
  std::uint64_t _size;
  bool _endsWithRemains = false;
  std::atomic<std::uint64_t> _changes = 1;  // what an earlier process has written counts as one
  std::atomic<std::uint64_t> _synced = 0;   // of the changes
};

}  // namespace kite::Linux
