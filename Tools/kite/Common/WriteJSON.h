#pragma once

#include <Kite/JSONValue.h>

#include <string>

namespace kite::tool {

/// The value as the library writes it, with null for a real that is not finite.
std::string toJSON(const JSONValue& value);

}  // namespace kite::tool
