#pragma once

#include <Kite/Base/Shared.h>
#include <Kite/Base/UUID.h>
#include <Kite/JSONValue.h>

#include "Events/EventType.h"
#include "Events/User.h"

#include <concepts>
#include <optional>
#include <string>

namespace kite {

/// What all kinds of events have in common.
template <class E>
concept KiteEvent = requires(const E& event) {
  { event.type() } -> std::convertible_to<EventType>;
  { event.id() } -> std::convertible_to<std::string>;
  { event.timestamp() } -> std::convertible_to<double>;
  { event.requestTimestamp() } -> std::convertible_to<std::optional<double>>;
  { event.user() } -> std::convertible_to<Shared<User>>;
  { event.data() } -> std::convertible_to<JSONValue::Object>;
};

}  // namespace kite
