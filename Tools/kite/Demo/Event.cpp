#include "Demo/Event.h"

namespace kite::tool {
namespace {

const JSONValue* member(const JSONValue& value, std::string_view key) {
  const auto* members = value.object();
  return members ? members->at(key) : nullptr;
}

bool isTrue(const JSONValue* value) { return value && value->boolean() && *value->boolean(); }

}  // namespace

const JSONValue::Object* Event::content() const {
  const auto* nested = type == "UserAction"   ? member(data, "action_info")
                       : type == "DebugEvent" ? member(data, "info")
                                              : &data;
  return nested ? nested->object() : nullptr;
}

std::optional<std::int64_t> Event::sequence() const {
  const auto* members = content();
  const auto* sequence = members ? members->at(sequenceKey) : nullptr;
  if (!sequence || !sequence->integer()) return std::nullopt;
  return *sequence->integer();
}

std::string Event::detail() const {
  if (type == "Session") {
    const auto* subtype = member(data, "subtype");
    if (subtype && *subtype == JSONValue("session_start")) return "start";
    return isTrue(member(data, "crashed")) ? "end after a crash" : "end";
  }
  if (type == "Install") {
    const auto* oldVersion = member(data, "old_app_version");
    const auto* newVersion = member(data, "new_app_version");
    if (!oldVersion) return "first";
    return newVersion && *oldVersion == *newVersion ? "again" : "update";
  }
  return "";
}

}  // namespace kite::tool
