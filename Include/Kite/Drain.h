#pragma once

#include <Kite/Base/Export.h>
#include <Kite/Platform/Tempra.h>

#include <chrono>
#include <cstdint>
#include <functional>

namespace kite {

class KiteManagerImpl;

/// How long a drain may take, in seconds or any unit of `<chrono>`.
struct DrainLimits {
  Tempra::Duration persistWithin = std::chrono::milliseconds(250);
  Tempra::Duration deliverWithin{0};  ///< 0: nothing is uploaded
};

/// Why a drain ended.
enum class DrainEnd {
  persisted,     ///< all that was recorded before is on disk, and no time was given to deliver it
  delivered,     ///< nothing is pending any more
  deadline,      ///< the time was up
  notPersisted,  ///< the disk does not take the events, or one of them has no JSON form
  unreachable,   ///< no endpoint answered
  refused,       ///< an endpoint answered, and none took the batch
  notReadable,   ///< the pending events cannot be read from the disk
  notRunning,    ///< before `start`, or in a forked child
};

/// What a drain has done. An event whose upload was under way when the time was up counts as
/// pending, and may have arrived all the same.
struct DrainReport {
  std::uint64_t delivered = 0;  ///< events that the service took while the drain ran
  std::uint64_t persisted = 0;  ///< pending, on disk: the next run delivers them
  std::uint64_t inMemory = 0;   ///< pending, not on disk: lost if the process ends now
  DrainEnd end = DrainEnd::notRunning;

  friend bool operator==(const DrainReport&, const DrainReport&) = default;
};

/// Puts everything recorded before the call on disk, then uploads for as long as it may.
///
/// Any thread, as often as wanted. Uploads go on whether a session runs or not. On the main thread
/// that the bundle's `BackgroundChecker` asks, bodies posted to that thread run meanwhile.
KITE_EXPORT DrainReport drain(KiteManagerImpl& kite, DrainLimits limits = {});
/// The same without waiting: `whenDone` runs once, on a thread of the library's or on this one. It
/// must be quick and must not throw.
KITE_EXPORT void drain(KiteManagerImpl& kite, DrainLimits limits,
                       std::function<void(const DrainReport&)> whenDone);

}  // namespace kite
