#include "Events/DebugEvent.h"

#include <Kite/KiteValue.h>

#include "Events/OrNull.h"

#include <utility>

namespace kite {

JSONValue::Object DebugEvent::Payload::data() const {
  return {{"severity", text(severity)},
          {"message", message},
          {"category", category},
          {"domain", orNull(domain)},
          {"code", orNull(code)},
          {"type", orNull(type)},
          {"description", orNull(description)},
          {"info", info},
          {"file", file},
          {"function", function},
          {"line", KiteValue(line).toJSONValue()}};
}

DebugEvent::DebugEvent(Payload payload, const Shared<User>& user)
    : _payload(std::move(payload)), _user(user) {}

}  // namespace kite
