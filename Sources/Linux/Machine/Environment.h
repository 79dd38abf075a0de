#pragma once

#include <functional>
#include <optional>
#include <string>

namespace kite::Linux {

/// The value of an environment variable; nothing when it is unset or empty.
using Environment = std::function<std::optional<std::string>(const char* name)>;

Environment processEnvironment();

}  // namespace kite::Linux
