#include "Events/WhiskerEvents.h"

#include <Kite/KiteValue.h>

namespace kite::WhiskerEvents {
namespace {

JSONValue::Array eventInfoKeys(const StoredEvent& event) {
  const auto* actionInfo = event.data.at("action_info");
  const auto converted = actionInfo ? toKiteValue(*actionInfo) : std::nullopt;
  const auto members = converted ? converted->as<KiteData>() : std::nullopt;
  JSONValue::Array keys;
  if (!members) return keys;
  for (const auto& [key, value] : members->values()) keys.emplace_back(key);
  return keys;
}

}  // namespace

Whisker::DebugEvent jsonEncodingError(const StoredEvent& event, const EncodingError& errorContext) {
  const auto& path = errorContext.codingPath;
  return {.severity = Whisker::Severity::warning,
          .categories = {"json_encoding_error"},
          .description =
              "Received an event with a value which isn\u2019t encodable as a JSON array "
              "or JSON object",
          .errorCode = std::nullopt,
          .info = {{"event_info_keys", eventInfoKeys(event)},
                   {"debug_description", errorContext.debugDescription},
                   {"error_coding_path", JSONValue::Array(path.begin(), path.end())}}};
}

}  // namespace kite::WhiskerEvents
