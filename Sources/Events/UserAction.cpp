#include "Events/UserAction.h"

#include "Base/UUIDText.h"
#include "Events/OrNull.h"

#include <utility>

namespace kite {

JSONValue::Object UserAction::Payload::data() const {
  return {{"action_info", toJSONObject(actionInfo)},
          {"action_kind", actionKind.view()},
          {"is_background_event", isBackgroundEvent},
          {"last_foreground_session_id", orNull(lastForegroundSessionId)},
          {"process_id", processId.text()},
          {"seconds_from_session_start", orNull(secondsFromSessionStart)},
          {"session_id", orNull(sessionId)}};
}

void writeData(JSONWriter& writer, const UserAction::Payload& payload) {
  const auto write = [&](const std::optional<UUID>& id) {
    id ? writer.string(UUIDText(*id).view()) : writer.null();
  };
  writer.beginObject();
  writer.key("action_info");
  writer.value(payload.actionInfo);
  writer.key("action_kind");
  writer.string(payload.actionKind.view());
  writer.key("is_background_event");
  writer.boolean(payload.isBackgroundEvent);
  writer.key("last_foreground_session_id");
  write(payload.lastForegroundSessionId);
  writer.key("process_id");
  write(payload.processId);
  writer.key("seconds_from_session_start");
  payload.secondsFromSessionStart ? writer.number(*payload.secondsFromSessionStart) : writer.null();
  writer.key("session_id");
  write(payload.sessionId);
  writer.endObject();
}

UserAction::UserAction(Payload&& payload, const Shared<User>& user)
    : _payload(std::move(payload)), _user(user) {}

}  // namespace kite
