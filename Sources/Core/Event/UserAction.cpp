#include "Core/Event/UserAction.h"

#include "Core/Event/OrNull.h"

#include <utility>

namespace kite {

JSONValue::Object UserAction::Payload::data() const {
  return {{"action_info", toJSONObject(actionInfo)},
          {"action_kind", actionKind},
          {"is_background_event", isBackgroundEvent},
          {"last_foreground_session_id", orNull(lastForegroundSessionId)},
          {"process_id", processId.text()},
          {"seconds_from_session_start", orNull(secondsFromSessionStart)},
          {"session_id", orNull(sessionId)}};
}

UserAction::UserAction(Payload payload, Shared<User> user)
    : _payload(std::move(payload)), _user(std::move(user)) {}

}  // namespace kite
