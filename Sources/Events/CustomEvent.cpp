#include "Events/CustomEvent.h"

#include <utility>

namespace kite {

CustomEvent::CustomEvent(std::string tableName, Payload payload, const Shared<User>& user)
    : _tableName(std::move(tableName)), _payload(std::move(payload)), _user(user) {}

}  // namespace kite
