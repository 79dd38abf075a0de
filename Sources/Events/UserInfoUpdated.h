#pragma once

#include "Events/KiteEvent.h"

#include <vector>

namespace kite {

class UserInfoUpdated {
 public:
  struct Payload {
    JSONValue::Object oldUserInfo;
    JSONValue::Object newUserInfo;
    std::vector<std::string> updatedKeys;
    std::vector<std::string> lostKeys;
    UUID id;
    double timestamp;

    JSONValue::Object data() const;

    friend bool operator==(const Payload&, const Payload&) = default;
  };

  UserInfoUpdated(Payload payload, const Shared<User>& user);

  EventType type() const { return EventType::Case::userInfoUpdated; }
  std::string id() const { return _payload.id.text(); }
  double timestamp() const { return _payload.timestamp; }
  std::optional<double> requestTimestamp() const { return std::nullopt; }
  const Shared<User>& user() const { return _user; }
  JSONValue::Object data() const { return _payload.data(); }

 private:
  Payload _payload;
  Shared<User> _user;
};

static_assert(KiteEvent<UserInfoUpdated>);

}  // namespace kite
