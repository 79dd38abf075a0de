#include "Events/UserInfoUpdated.h"

#include <utility>

namespace kite {
namespace {

JSONValue arrayOf(const std::vector<std::string>& keys) {
  return JSONValue::Array(keys.begin(), keys.end());
}

}  // namespace

JSONValue::Object UserInfoUpdated::Payload::data() const {
  return {{"old_user_info", oldUserInfo},
          {"new_user_info", newUserInfo},
          {"updated_keys", arrayOf(updatedKeys)},
          {"lost_keys", arrayOf(lostKeys)}};
}

UserInfoUpdated::UserInfoUpdated(Payload payload, const Shared<User>& user)
    : _payload(std::move(payload)), _user(user) {}

}  // namespace kite
