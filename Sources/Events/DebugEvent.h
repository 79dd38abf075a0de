#pragma once

#include <Kite/Severity.h>

#include "Events/KiteEvent.h"

#include <cstdint>

namespace kite {

class DebugEvent {
 public:
  struct Payload {
    UUID id;
    double timestamp;
    Severity severity;
    std::string message;
    std::string category;
    std::optional<std::string> domain;
    std::optional<std::string> code;
    std::optional<std::string> type;
    std::optional<std::string> description;
    JSONValue::Object info;
    std::string file;
    std::string function;
    std::uint64_t line;

    /// A line above the signed 64-bit range stops the process.
    JSONValue::Object data() const;

    friend bool operator==(const Payload&, const Payload&) = default;
  };

  DebugEvent(Payload payload, const Shared<User>& user);

  EventType type() const { return EventType::Case::debugEvent; }
  std::string id() const { return _payload.id.text(); }
  double timestamp() const { return _payload.timestamp; }
  std::optional<double> requestTimestamp() const { return std::nullopt; }
  const Shared<User>& user() const { return _user; }
  JSONValue::Object data() const { return _payload.data(); }

 private:
  Payload _payload;
  Shared<User> _user;
};

static_assert(KiteEvent<DebugEvent>);

}  // namespace kite
