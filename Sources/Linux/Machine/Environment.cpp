#include "Linux/Machine/Environment.h"

#include <cstdlib>

namespace kite::Linux {

Environment processEnvironment() {
  return [](const char* name) -> std::optional<std::string> {
    const auto* value = std::getenv(name);
    return value && *value ? std::optional<std::string>(value) : std::nullopt;
  };
}

}  // namespace kite::Linux
