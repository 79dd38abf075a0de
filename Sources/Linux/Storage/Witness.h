#pragma once

#include "Linux/Storage/Disk.h"

#include <cstdint>
#include <memory>
#include <optional>

namespace kite::Linux {

/// A small file beside a store's logs that knows how far they reach. A log that ends early at the
/// edge of a record looks whole; this tells that it is not. It is written after the log and synced
/// only before a segment is removed, so that it may be behind the log, but is ahead of it only
/// after a loss.
class Witness {
 public:
  static constexpr const char* fileName = "state";

  struct State {
    std::uint64_t store = 0;  ///< identifies the store
    std::uint64_t lastValue = 0;
    std::uint64_t lastEdit = 0;
    std::uint64_t firstSegment = 0;  ///< older ones are gone for good

    friend bool operator==(const State&, const State&) = default;
  };

  /// What the file says; nothing when there is none that is whole.
  static std::optional<State> read(Disk& disk);

  /// Makes the file anew.
  static std::unique_ptr<Witness> make(Disk& disk, const State& state);

  const State& state() const { return _state; }
  /// A witness that cannot be written stays behind; nothing else depends on it.
  void set(const State& state);
  bool sync() { return _file->sync(); }

 private:
  explicit Witness(std::unique_ptr<DiskFile> file) : _file(std::move(file)) {}

  std::unique_ptr<DiskFile> _file;
  State _state;
};

}  // namespace kite::Linux
