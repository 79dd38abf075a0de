#pragma once

#include "Events/StoredEvent.h"
#include "Events/TrackedEvent.h"

#include <set>
#include <string>
#include <utility>
#include <variant>

namespace kite {

/// What becomes of events that are removed: all that are not named here were delivered. By
/// identifiers, because a batch may be sent again before it is removed.
struct RemovalAccount {
  std::set<std::string> notEncodable = {};
  std::set<std::string> lostOnDisk = {};
  bool wasSent = true;  ///< false: the others were dropped, too
};

/// What the pending events wait for: an event to append, or identifiers whose events are to go.
/// It is put on the heap once, and from there on only its pointer moves.
struct PendingChange {
  struct Removal {
    std::set<std::string> ids;
    RemovalAccount account = {};
  };

  template <class... Content>
  explicit PendingChange(Content&&... given) : content(std::forward<Content>(given)...) {}

  std::variant<TrackedEvent, StoredEvent, Removal> content;
  bool mayWait = false;  ///< until somebody wants to know the pending events
  PendingChange* next = nullptr;
};

}  // namespace kite
