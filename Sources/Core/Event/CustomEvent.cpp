#include "Core/Event/CustomEvent.h"

#include <utility>

namespace kite {

CustomEvent::CustomEvent(std::string tableName, Payload payload, Shared<User> user)
    : _tableName(std::move(tableName)), _payload(std::move(payload)), _user(std::move(user)) {}

}  // namespace kite
