#include "Core/Event/UserAction.h"

#include "Core/Event/OrNull.h"

#include <utility>

namespace kite {

JSONValue::Object UserAction::Payload::data() const& { return Payload(*this).data(); }

// Runs on the caller's thread for every action: one allocation for the map, keys in its order.
JSONValue::Object UserAction::Payload::data() && {
  JSONValue::Object data;
  data.reserve(7);
  data.insertOrAssign("action_info", std::move(actionInfo));
  data.insertOrAssign("action_kind", std::move(actionKind));
  data.insertOrAssign("is_background_event", isBackgroundEvent);
  data.insertOrAssign("last_foreground_session_id", orNull(lastForegroundSessionId));
  data.insertOrAssign("process_id", processId.text());
  data.insertOrAssign("seconds_from_session_start", orNull(secondsFromSessionStart));
  data.insertOrAssign("session_id", orNull(sessionId));
  return data;
}

UserAction::UserAction(Payload payload, Shared<User> user)
    : _payload(std::move(payload)), _user(std::move(user)) {}

}  // namespace kite
