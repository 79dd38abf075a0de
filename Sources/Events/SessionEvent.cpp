#include "Events/SessionEvent.h"

#include "Events/StorefrontEntries.h"

#include <utility>

namespace kite {
namespace {

JSONValue::Object data(const SessionStartPayload&) { return {{"subtype", "session_start"}}; }

JSONValue::Object data(const SessionEndPayload& payload) {
  const JSONValue::Object fixed{{"subtype", "session_end"},
                                {"session_start_id", payload.sessionStartId.text()},
                                {"crashed", payload.crashed},
                                {"duration", payload.duration}};
  return payload.sessionData.merged(fixed);
}

double timestamp(const SessionStartPayload& payload) { return payload.sessionStartDate; }
double timestamp(const SessionEndPayload& payload) { return payload.sessionEndTimestamp; }

}  // namespace

JSONValue::Object toJSONValue(const SessionSubtype& subtype) {
  return std::visit([](const auto& payload) { return kite::data(payload); }, subtype);
}

SessionEvent::SessionEvent(SessionSubtype subtype, const Shared<User>& user,
                           std::optional<Storefront> storefront)
    : _subtype(std::move(subtype)), _user(user), _storefront(std::move(storefront)) {}

std::string SessionEvent::id() const {
  return std::visit([](const auto& payload) { return payload.id.text(); }, _subtype);
}

double SessionEvent::timestamp() const {
  return std::visit([](const auto& payload) { return kite::timestamp(payload); }, _subtype);
}

JSONValue::Object SessionEvent::data() const {
  return withStorefront(_storefront, toJSONValue(_subtype));
}

}  // namespace kite
