#pragma once

#include "Linux/Storage/StoreFiles.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kite::Linux {

std::string segmentName(std::uint64_t segment);
std::string indexName(std::uint64_t segment);
/// The number in the name of a segment, or of its index; nothing for other names.
std::optional<std::uint64_t> segmentOf(std::string_view fileName);
std::optional<std::uint64_t> indexOf(std::string_view fileName);

/// A row and where it is in its segment, as an index file has it.
struct RowEntry {
  std::uint32_t list;
  std::uint32_t size;  ///< of the record
  std::uint64_t ordinal;
  std::uint64_t offset;
  UUID tag;
};

/// What a segment says, without the texts of its rows.
struct SegmentContents {
  /// A record that is no row.
  struct Change {
    Record::Kind kind;
    std::uint32_t list;
    std::string payload;
  };
  /// The last edit, when its end is not in the file: its first byte, row and change.
  struct Unfinished {
    std::uint64_t edit;
    std::uint64_t begin;
    std::size_t rows;
    std::size_t changes;
  };

  std::uint64_t size = 0;        ///< of the file
  std::uint64_t editBefore = 0;  ///< the last one before the segment
  std::uint64_t lastEdit = 0;    ///< the last one that is whole
  std::vector<RowEntry> rows = {};
  std::vector<Change> changes = {};
  std::optional<Unfinished> unfinished = std::nullopt;
  bool isDamaged = false;
  bool endsInZeros = false;
  std::optional<std::uint64_t> tornAt = std::nullopt;  ///< where a record is cut off by the end

  /// Takes the unfinished edit back.
  void dropUnfinished();
};

/// Reads all of a segment, but checks no row's text: that is done when it is read.
SegmentContents scanSegment(std::string_view file, std::uint64_t store);

/// The file beside a sealed segment that spares a start to read it.
std::string asIndex(const SegmentContents& contents, std::uint64_t store);
/// Nothing when any byte of the index is wrong.
std::optional<SegmentContents> readIndex(std::string_view file, std::uint64_t store);

}  // namespace kite::Linux
