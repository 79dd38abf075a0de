#pragma once

#include <Kite/Base/Date.h>
#include <Kite/Base/Export.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace kite {

class KiteManagerImpl;

/// How one upload ended, after all endpoints that it was tried at.
struct UploadReport {
  Date time;             ///< of the end, by the wall clock
  std::string endpoint;  ///< scheme, host and port of the last attempt; empty when there was none
  std::optional<int> statusCode = {};     ///< of the last reply
  std::optional<std::string> error = {};  ///< in words; nothing when the batch was taken
  bool isUnreachable = false;             ///< no endpoint answered at all
  std::uint64_t events = 0;               ///< in the request, or dropped when there was none
  std::uint64_t pending = 0;              ///< in the queue when it ended, the batch among them

  friend bool operator==(const UploadReport&, const UploadReport&) = default;
};

/// Events that will not be delivered, by reason.
struct DroppedEvents {
  std::uint64_t noConsent = 0;     ///< user actions that the consents forbid
  std::uint64_t notStarted = 0;    ///< tracked before `start`
  std::uint64_t inBackground = 0;  ///< custom events, which belong to the foreground
  std::uint64_t notEncodable =
      0;  ///< without a JSON form: a number that is not finite, for instance
  std::uint64_t notUploadable = 0;  ///< their batch could not be compressed
  std::uint64_t lostOnDisk = 0;     ///< damaged, removed, or no longer to be decoded

  std::uint64_t total() const {
    return noConsent + notStarted + inBackground + notEncodable + notUploadable + lostOnDisk;
  }
  friend bool operator==(const DroppedEvents&, const DroppedEvents&) = default;
};

/// What became of every event: `tracked` is `pending` and `delivered` and all that were dropped.
///
/// Of this run and what it found in the store. With `Linux::KiteApplication` the counts go on
/// across restarts: they are saved with each change of the stored queue and by a drain, so that a
/// kill takes back what it takes of both.
struct Ledger {
  std::uint64_t tracked = 0;
  std::uint64_t pending = 0;
  std::uint64_t delivered = 0;  ///< taken by the service
  DroppedEvents dropped = {};

  friend bool operator==(const Ledger&, const Ledger&) = default;
};

struct Status {
  Ledger ledger;
  std::uint64_t inMemory = 0;            ///< pending, not on disk yet
  std::uint64_t onDisk = 0;              ///< pending, on disk
  std::optional<double> oldestAge = {};  ///< seconds since the oldest pending event was recorded
  std::optional<UploadReport> lastUpload = {};
};

/// Where a facade stands. Any thread; reads at most one event from the disk. Empty before `start`
/// but for the events that came too early, and in a forked child.
KITE_EXPORT Status status(KiteManagerImpl& kite);

/// `callback` is called after each upload from now on, on a thread of the library's; it must not
/// throw. Several are called in the order in which they came.
KITE_EXPORT void onUpload(KiteManagerImpl& kite, std::function<void(const UploadReport&)> callback);

}  // namespace kite
