#pragma once

#include "Events/KiteEvent.h"

#include <utility>

namespace kite {

class CustomEvent {
 public:
  struct Payload {
    JSONValue::Object data;
    UUID id;
    double timestamp;

    friend bool operator==(const Payload&, const Payload&) = default;
  };

  CustomEvent(std::string tableName, Payload payload, const Shared<User>& user);

  EventType type() const { return EventType::custom(_tableName); }
  std::string id() const { return _payload.id.text(); }
  double timestamp() const { return _payload.timestamp; }
  std::optional<double> requestTimestamp() const { return std::nullopt; }
  const Shared<User>& user() const { return _user; }
  JSONValue::Object data() const& { return _payload.data; }
  JSONValue::Object data() && { return std::move(_payload.data); }

 private:
  std::string _tableName;
  Payload _payload;
  Shared<User> _user;
};

static_assert(KiteEvent<CustomEvent>);

}  // namespace kite
