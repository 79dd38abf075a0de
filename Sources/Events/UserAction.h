#pragma once

#include <Kite/KiteData.h>

#include "Base/ShortText.h"
#include "Events/KiteEvent.h"
#include "JSON/JSONWriter.h"

#include <utility>

namespace kite {

class UserAction {
 public:
  struct Payload {
    UUID id;
    double timestamp;
    ShortText actionKind;
    KiteData actionInfo;
    std::optional<double> secondsFromSessionStart;
    std::optional<UUID> sessionId;
    UUID processId;
    std::optional<UUID> lastForegroundSessionId;
    bool isBackgroundEvent;

    JSONValue::Object data() const;

    friend bool operator==(const Payload&, const Payload&) = default;
  };

  UserAction(Payload&& payload, const Shared<User>& user);

  EventType type() const { return EventType::Case::userAction; }
  std::string id() const { return _payload.id.text(); }
  double timestamp() const { return _payload.timestamp; }
  std::optional<double> requestTimestamp() const { return std::nullopt; }
  const Shared<User>& user() const { return _user; }
  const Payload& payload() const { return _payload; }
  JSONValue::Object data() const { return _payload.data(); }

 private:
  Payload _payload;
  Shared<User> _user;
};

static_assert(KiteEvent<UserAction>);

/// Writes the text of `payload.data()`, of which there are many.
void writeData(JSONWriter& writer, const UserAction::Payload& payload);

}  // namespace kite
