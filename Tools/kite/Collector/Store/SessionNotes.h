#pragma once

#include "Collector/EventFacts.h"
#include "Collector/Store/Records.h"

#include <string>
#include <string_view>

namespace kite::tool {

/// Adds what an event tells about a session, which is new when its `id` is empty.
void note(SessionRecord& session, std::string_view client, double timestamp,
          const EventFacts& facts);

/// The intervals as JSON text, and back.
std::string intervalsJSON(const SessionRecord& session);
void readIntervals(std::string_view json, SessionRecord& session);

}  // namespace kite::tool
