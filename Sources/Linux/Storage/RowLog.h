#pragma once

#include <Kite/Platform/Larder.h>

#include "Linux/Storage/OrdinalRanges.h"
#include "Linux/Storage/SegmentContents.h"
#include "Linux/Storage/SegmentFile.h"

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
/// So a segment is dropped once all its rows were removed, and the living rows of an old one can be
/// moved to the end.
class RowLog {
 public:
  enum class Outcome { done, failed, noList };
  using Placed = std::vector<Larder::SavedRow>;

  /// What others know of the lists.
  struct Known {
    std::uint64_t lastEdit = 0;
    std::uint64_t firstSegment = 0;
    std::map<std::string, std::uint32_t, std::less<>> numbers = {};  ///< by key
  };

  RowLog(std::shared_ptr<Disk> disk, std::uint64_t store, TellDamaged tell)
      : _disk(std::move(disk)), _store(store), _tell(std::move(tell)) {}

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

  Outcome read(std::string_view key, Larder::SavedList& list);
  /// `placed` gets the rows that were written.
  Outcome edit(std::string_view key, const Larder::ListEdit& edit, Placed& placed);
  bool end(std::string_view key);

  bool hasDropped() const { return !_dropped.empty(); }
  /// Removes the files of dropped segments, and indexes without a segment. Only after the witness
  /// knows that they are gone.
  void removeDropped();
  /// The files whose `sync` puts all edits on the medium.
  std::vector<std::shared_ptr<LogFile>> unsynced();
  /// False once somebody else has removed the segment that is written to.
  bool isLinked() const { return !_active || _active->isLinked(); }

 private:
  static constexpr std::uint64_t fullSegment = 4 * 1024 * 1024;

  /// The ordinals of one list that a segment holds rows of.
  struct Span {
    std::uint64_t first;
    std::uint64_t last;
    std::uint64_t rows;
  };
  struct Segment {
    std::shared_ptr<SegmentFile> file;
    std::uint64_t size = 0;
    std::map<std::uint32_t, Span> spans = {};  // by the number of the list
    bool isDamaged = false;
    std::shared_ptr<LogFile> unsynced = nullptr;  // until it is found synced

    void note(std::uint32_t list, std::uint64_t ordinal);
  };
  struct List {
    std::uint32_t number;
    OrdinalRanges removed = {};
    std::uint64_t next = 0;  // above all ordinals that were used
    std::string note = {};
  };
  using Lists = std::map<std::string, List, std::less<>>;
  using Contents = std::map<std::uint64_t, SegmentContents>;  // by segment
  class Batch;

  std::optional<Contents> readAll(const std::vector<std::string>& names, const Known& known,
                                  Damages& damages);
  std::optional<SegmentContents> contentsOf(std::uint64_t segment) const;
  void learnEdits(Contents& contents, const Known& known, Damages& damages);
  void learnLists(const Contents& contents, const Known& known);
  Segment& addSegment(std::uint64_t number);
  const List* listOf(std::uint32_t number) const;
  bool isLiving(const RowEntry& row) const;
  /// Those of a list in all segments, removed ones included.
  std::uint64_t rowsOf(std::uint32_t list) const;
  bool makeActive();
  bool startSegment();
  void writeIndex();
  std::uint64_t livingRows(const Segment& segment) const;
  void dropFinished();
  void compact(Placed& placed);
  bool move(std::uint64_t segment, Placed& placed);
  void drop(std::uint64_t segment);
  void dropFiles(std::uint64_t segment);

  std::shared_ptr<Disk> _disk;
  std::uint64_t _store;
  TellDamaged _tell;
  std::map<std::uint64_t, Segment> _segments;  // by number
  std::vector<std::string> _dropped;           // files
  Lists _lists;                                // by key
  std::shared_ptr<LogFile> _active;            // the last segment's
  SegmentContents _written;                    // of the last segment
  Contents _loaded;                            // until somebody reads or edits
  std::uint64_t _nextSegment = 1;
  std::uint32_t _nextList = 1;
  std::uint64_t _lastEdit = 0;
  bool _areAllMissing = false;
};

}  // namespace kite::Linux
