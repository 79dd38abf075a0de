#pragma once

#include <Kite/Platform/Larder.h>

#include "Linux/Storage/OrdinalRanges.h"
#include "Linux/Storage/StoreFiles.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kite::Linux {

/// The lists of a store: rows appended to segments, and records of what was removed. One thread at
/// a time.
///
/// What a list holds is all of its rows less all that was removed, in whatever order the records
/// stand: ordinals are never used twice in a list, and a list that begins anew gets a new number.
/// So a segment is dropped once all its rows were removed, and rows that live in an old one can be
/// moved to the end.
class RowLog {
 public:
  enum class Outcome { done, failed, noList };

  /// What others know of the lists.
  struct Known {
    std::uint64_t lastEdit = 0;
    std::uint64_t firstSegment = 0;
    std::map<std::string, std::uint32_t, std::less<>> numbers = {};  ///< by key
  };

  RowLog(Disk& disk, std::uint64_t store) : _disk(disk), _store(store) {}

  static bool isSegment(std::string_view fileName);

  /// Reads the segments among `names`, and writes nothing. False when one of them cannot be read.
  bool load(const std::vector<std::string>& names, const Known& known, Damages& damages);
  /// Moves what damaged segments, and those before them, still hold into new ones.
  void mend();

  std::vector<std::string> keys() const;
  bool holds(std::string_view key) const { return _lists.contains(key); }
  /// The number of a list that there is.
  std::uint32_t number(std::string_view key) const { return _lists.find(key)->second.number; }
  std::uint64_t lastEdit() const { return _lastEdit; }
  std::uint64_t firstSegment() const;

  /// Hands the elements over in the order of their ordinals. Damaged ones are left out and counted.
  Outcome read(std::string_view key, Larder::ListReader& reader, std::size_t& damaged);
  Outcome edit(std::string_view key, const Larder::ListEdit& edit);
  bool end(std::string_view key);

  /// Removes the files of dropped segments. Only after the witness knows that they are gone.
  void removeDropped();
  /// The files whose `sync` puts all edits on the medium.
  std::vector<std::shared_ptr<LogFile>> takeUnsynced();
  /// False once somebody else has removed the segment that is written to.
  bool isLinked() const { return !_active || _active->isLinked(); }

 private:
  /// The ordinals of one list that a segment holds rows of.
  struct Span {
    std::uint64_t first;
    std::uint64_t last;
    std::uint64_t rows;
    bool isAscending;
  };
  struct Segment {
    std::uint64_t size = 0;
    std::map<std::uint32_t, Span> spans = {};  // by the number of the list
    bool isDamaged = false;
    std::shared_ptr<LogFile> unsynced = nullptr;  // written to since its last `sync`
  };
  struct List {
    std::uint32_t number;
    OrdinalRanges removed = {};
    std::uint64_t next = 0;  // above all ordinals that were used
  };
  using Lists = std::map<std::string, List, std::less<>>;
  class Replay;
  class Batch;

  void checkEndBefore(std::uint64_t number, const std::optional<Head>& head, const Replay& replay,
                      Damages& damages);
  void loadSegment(std::uint64_t number, std::string_view bytes, Replay& replay, Damages& damages);
  void finish(Replay& replay, const Known& known, Damages& damages);
  std::optional<std::string> bytesOf(std::uint64_t segment) const;
  const List* listOf(std::uint32_t number) const;
  template <class Take>
  void eachLivingRow(std::string_view bytes, Take take) const;
  bool isInOrder(std::uint32_t list) const;
  bool makeActive();
  bool startSegment();
  void note(Segment& segment, const Record& row);
  std::uint64_t livingRows(const Segment& segment) const;
  void dropFinished();
  void compact();
  bool move(std::uint64_t segment);
  void drop(std::uint64_t segment);

  Disk& _disk;
  std::uint64_t _store;
  std::map<std::uint64_t, Segment> _segments;  // by number
  std::vector<std::uint64_t> _dropped;
  Lists _lists;                      // by key
  std::shared_ptr<LogFile> _active;  // the last segment's
  std::uint64_t _nextSegment = 1;
  std::uint32_t _nextList = 1;
  std::uint64_t _lastEdit = 0;
  std::uint64_t _unfinishedEdit = 0;  // whose records do not count
  bool _areAllMissing = false;
};

}  // namespace kite::Linux
