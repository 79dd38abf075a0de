#pragma once

#include "Queue/EventList.h"

#include <string>
#include <string_view>

namespace kite {

/// What a store holds as the queue of events.
struct StoredEventList {
  EventList events;
  /// Whether the store holds exactly these events, as rows with these ordinals.
  bool isSaved;
  std::string note = {};  ///< what the list's owner saved with it

  /// The queue stored as a list or as a JSON array. Empty when there is no value, or when any part
  /// of it is not an event.
  static StoredEventList load(const Larder::KVStorage& storage, std::string_view key);
};

}  // namespace kite
