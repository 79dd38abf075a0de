#pragma once

#include <Kite/Platform/Larder.h>

#include "Base/Guarded.h"
#include "Linux/Storage/Disk.h"

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>

namespace kite::Linux {

/// Told how many more rows were found damaged.
using TellDamaged = std::function<void(std::size_t count)>;

/// Reads rows of one segment back. There may be many segments, so that the file is open only while
/// it is read, and from `keepOpen` to `close`. The rows of a file that is missing are damaged.
class SegmentFile final : public Larder::RowFile {
 public:
  SegmentFile(std::shared_ptr<Disk> disk, std::string name, std::uint64_t store, TellDamaged tell)
      : _disk(std::move(disk)), _name(std::move(name)), _store(store), _tell(std::move(tell)) {}

  std::optional<std::string> read(std::span<const Larder::RowPlace> places,
                                  const Take& take) const override;

  /// The file can be read from now on even if it is removed.
  void keepOpen();
  void close();

 private:
  std::shared_ptr<const DiskFile> file() const;
  bool readRun(const DiskFile& file, std::span<const Larder::RowPlace> run, const Take& take,
               std::size_t& damaged) const;
  void takeDamaged(const Larder::RowPlace& place, const Take& take, std::size_t& damaged) const;
  bool isMissing() const;
  std::string error() const { return _name + ": " + _disk->error(); }

  std::shared_ptr<Disk> _disk;
  std::string _name;
  std::uint64_t _store;
  TellDamaged _tell;
  mutable Guarded<std::shared_ptr<const DiskFile>> _kept;
  mutable Guarded<std::set<std::uint64_t>> _told;  // offsets of damaged rows
};

}  // namespace kite::Linux
