#pragma once

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

/// `data` is JSON text. `factsOfTree` has the same of data that was read.
EventFacts factsOf(std::string_view id, std::string_view type, std::string_view data);

/// The session that an event tells something about; empty when there is none.
std::string sessionToldOf(const EventFacts& facts);

}  // namespace kite::tool
