#include "Events/UserAction.h"

#include "Base/UUIDText.h"
#include "Events/OrNull.h"
#include "JSON/MemberText.h"
#include "JSON/Pen.h"

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

void put(Pen& pen, const UUID& id) { pen.putQuoted(UUIDText(id).view()); }

void put(Pen& pen, const std::optional<UUID>& id) { id ? put(pen, *id) : pen.put("null"); }

}  // namespace

std::optional<EncodingError> appendJSON(std::string& out, const UserAction::Payload& payload,
                                        int enclosingContainers) {
  constexpr std::size_t roomForTheRest = 320;
  out += R"({"action_info":)";
  if (auto error = appendJSON(out, payload.actionInfo, enclosingContainers + 1))
    return within({"action_info"}, std::move(error));
  Pen pen(out, payload.actionKind.view().size() + roomForTheRest);
  pen.put(R"(,"action_kind":)");
  pen.putString(payload.actionKind.view());
  pen.put(R"(,"is_background_event":)");
  pen.put(payload.isBackgroundEvent ? "true" : "false");
  pen.put(R"(,"last_foreground_session_id":)");
  put(pen, payload.lastForegroundSessionId);
  pen.put(R"(,"process_id":)");
  put(pen, payload.processId);
  pen.put(R"(,"seconds_from_session_start":)");
  if (!payload.secondsFromSessionStart) {
    pen.put("null");
  } else if (auto error = pen.putReal(*payload.secondsFromSessionStart)) {
    return within({"seconds_from_session_start"}, std::move(error));
  }
  pen.put(R"(,"session_id":)");
  put(pen, payload.sessionId);
  pen.put('}');
  return std::nullopt;
}

UserAction::UserAction(Payload&& payload, const Shared<User>& user)
    : _payload(std::move(payload)), _user(user) {}

}  // namespace kite
