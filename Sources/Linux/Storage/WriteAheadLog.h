#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace kite::Linux {

/// The bytes of a store's write-ahead log: a header, and frames of a page each.
///
/// The log is written over from its beginning, so that frames of an earlier generation, which have
/// other salts, may follow the newest. SQLite ends the log at the first frame whose checksum is
/// wrong, and drops what follows without a word.
class WriteAheadLog {
 public:
  struct Frame {
    std::uint32_t pageNumber;
    std::string_view page;
    bool isSound;
  };

  /// The bytes must outlive it, and its frames.
  explicit WriteAheadLog(std::string_view bytes);

  /// Those of the newest generation, oldest first; damaged ones too, as far as they can be told.
  std::vector<Frame> frames() const;
  /// Whether some frame is damaged: one byte of it is wrong, or it is unsound and a later one
  /// commits.
  bool isBroken() const;

 private:
  std::string_view frameAt(std::size_t index) const;
  std::string_view sumBefore(std::size_t index) const;
  bool isBigEndian() const;
  bool isHeaderSound() const;
  bool isCurrent(std::size_t index) const;
  bool isCommit(std::size_t index) const;
  bool isSound(std::size_t index) const;
  bool isOneByteOff(std::size_t index) const;
  bool isUnfinishedFrom(std::size_t index) const;
  void findEnd();

  std::string_view _bytes;
  std::string_view _salts;
  std::size_t _firstUnsound = 0;
  std::size_t _end = 0;  ///< behind the last frame of the newest generation
};

}  // namespace kite::Linux
