#pragma once

#include <Kite/Status.h>

#include "Base/Guarded.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace kite {

/// Why an event will not be delivered.
using DropReason = std::uint64_t DroppedEvents::*;

/// What became of events that have left the queue.
struct RemovedEvents {
  std::uint64_t notEncodable = 0;
  std::uint64_t lostOnDisk = 0;
  std::uint64_t others = 0;
  bool wereSent = true;  ///< the others; false: they were dropped, too
};

/// Counts what becomes of events. Any thread.
class EventLedger {
 public:
  /// An event that does not reach the queue.
  void drop(DropReason reason);
  /// An event that was put into the queue.
  void append();
  void remove(const RemovedEvents& removed);

  /// Goes on with what an earlier run had counted when it saved its queue. What `note` knows and
  /// the queue does not is lost; what only the queue knows is counted as tracked.
  void load(std::string_view note, std::uint64_t pending);
  /// What `load` reads.
  std::string note() const;

  /// Whatever was loaded.
  std::uint64_t deliveredInThisRun() const {
    return _state.with([](const State& state) { return state.deliveredInThisRun; });
  }
  /// Without `pending`, which is the queue's to know.
  Ledger counts() const {
    return _state.with([](const State& state) { return state.counts; });
  }

 private:
  struct State {
    Ledger counts;
    std::uint64_t deliveredInThisRun = 0;
    bool isLoaded = false;
  };
  mutable Guarded<State> _state;
};

}  // namespace kite
