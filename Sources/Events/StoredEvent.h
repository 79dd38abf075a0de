#pragma once

#include <Kite/Base/Shared.h>

#include "Events/EventType.h"
#include "Events/User.h"
#include "JSON/JSONWriter.h"

#include <concepts>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace kite {

/// What every event has, whatever its kind.
template <class E>
concept KiteEvent = requires(const E& event) {
  { event.type() } -> std::convertible_to<EventType>;
  { event.id() } -> std::convertible_to<std::string>;
  { event.timestamp() } -> std::convertible_to<double>;
  { event.requestTimestamp() } -> std::convertible_to<std::optional<double>>;
  { event.user() } -> std::convertible_to<Shared<User>>;
  { event.data() } -> std::convertible_to<JSONValue::Object>;
};

/// One event as it is queued, stored and uploaded, whatever its kind.
struct StoredEvent {
  EventType type;
  std::string id;
  double timestamp;                        ///< seconds since 1970
  std::optional<double> requestTimestamp;  ///< seconds since 1970, of the upload that carries it
  std::string app;
  Shared<User> user;
  JSONValue::Object data;

  /// A custom event with a reserved name stops the process here.
  static StoredEvent from(const KiteEvent auto& event, std::string app) {
    const EventType type = event.type();
    static_cast<void>(type.rawValue());
    return {.type = type,
            .id = event.id(),
            .timestamp = event.timestamp(),
            .requestTimestamp = event.requestTimestamp(),
            .app = std::move(app),
            .user = event.user(),
            .data = event.data()};
  }

  friend bool operator==(const StoredEvent&, const StoredEvent&) = default;
};

/// Appends the event's JSON object; on an error `out` keeps what was written before it.
[[nodiscard]] std::optional<EncodingError> appendJSON(std::string& out, const StoredEvent& event);

/// The record in `json`, or nothing: a record decodes whole or not at all.
std::optional<StoredEvent> decodeStoredEvent(const JSONValue& json);

}  // namespace kite
