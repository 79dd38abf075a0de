#include "Core/Event/UserAction.h"

#include "Base/UUIDText.h"
#include "Core/Event/OrNull.h"
#include "Values/MemberText.h"

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

namespace {

void appendId(std::string& out, const UUID& id) {
  out += '"';
  out += UUIDText(id).view();
  out += '"';
}

void appendId(std::string& out, const std::optional<UUID>& id) {
  id ? appendId(out, *id) : void(out += "null");
}

}  // namespace

std::optional<EncodingError> appendJSON(std::string& out, const UserAction::Payload& payload,
                                        int enclosingContainers) {
  out += R"({"action_info":)";
  if (auto error = appendJSON(out, payload.actionInfo, enclosingContainers + 1))
    return within({"action_info"}, std::move(error));
  out += R"(,"action_kind":)";
  appendJSONString(out, payload.actionKind.view());
  out += R"(,"is_background_event":)";
  out += payload.isBackgroundEvent ? "true" : "false";
  out += R"(,"last_foreground_session_id":)";
  appendId(out, payload.lastForegroundSessionId);
  out += R"(,"process_id":)";
  appendId(out, payload.processId);
  out += R"(,"seconds_from_session_start":)";
  if (!payload.secondsFromSessionStart) {
    out += "null";
  } else if (auto error = appendJSON(out, *payload.secondsFromSessionStart)) {
    return within({"seconds_from_session_start"}, std::move(error));
  }
  out += R"(,"session_id":)";
  appendId(out, payload.sessionId);
  out += '}';
  return std::nullopt;
}

UserAction::UserAction(Payload&& payload, const Shared<User>& user)
    : _payload(std::move(payload)), _user(user) {}

}  // namespace kite
