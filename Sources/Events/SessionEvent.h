#pragma once

#include <Kite/Storefront.h>

#include "Events/KiteEvent.h"

#include <variant>

namespace kite {

struct SessionStartPayload {
  UUID id;                  ///< the session's
  double sessionStartDate;  ///< seconds since 1970

  friend bool operator==(const SessionStartPayload&, const SessionStartPayload&) = default;
};

struct SessionEndPayload {
  UUID sessionStartId;
  bool crashed;
  double duration;  ///< seconds, -1.0 when unknown
  JSONValue::Object sessionData;
  UUID id;
  double sessionEndTimestamp;  ///< seconds since 1970

  friend bool operator==(const SessionEndPayload&, const SessionEndPayload&) = default;
};

/// A session's start or its end.
using SessionSubtype = std::variant<SessionStartPayload, SessionEndPayload>;

JSONValue::Object toJSONValue(const SessionSubtype& subtype);

class SessionEvent {
 public:
  SessionEvent(SessionSubtype subtype, const Shared<User>& user,
               std::optional<Storefront> storefront);

  EventType type() const { return EventType::Case::session; }
  std::string id() const;
  double timestamp() const;
  std::optional<double> requestTimestamp() const { return std::nullopt; }
  const Shared<User>& user() const { return _user; }
  JSONValue::Object data() const;

 private:
  SessionSubtype _subtype;
  Shared<User> _user;
  std::optional<Storefront> _storefront;
};

static_assert(KiteEvent<SessionEvent>);

}  // namespace kite
