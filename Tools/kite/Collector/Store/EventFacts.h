#pragma once

#include "Collector/Store/Records.h"

#include <optional>
#include <string>
#include <string_view>

namespace kite::tool {

/// What an event's data tells beside itself.
struct EventFacts {
  std::optional<std::string> name = {};     ///< of an action, a debug message, a session's subtype
  std::optional<std::string> session = {};  ///< the one that it belongs to
  std::optional<std::string> lastForegroundSession = {};
  bool isSessionStart = false;
  bool isSessionEnd = false;
  bool hasCrashed = false;
  double duration = 0;
  bool isInBackground = false;
};
EventFacts factsOf(std::string_view id, std::string_view type, std::string_view data);

/// The session that an event tells something about; empty when there is none.
std::string sessionToldOf(const EventFacts& facts);
/// Adds what an event tells about a session, which is new when its `id` is empty.
void note(SessionRecord& session, std::string_view client, double timestamp,
          const EventFacts& facts);

/// The intervals as JSON text, and back.
std::string intervalsJSON(const SessionRecord& session);
void readIntervals(std::string_view json, SessionRecord& session);

}  // namespace kite::tool
