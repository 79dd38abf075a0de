#pragma once

#include <Kite/JSONValue.h>

#include <string>
#include <string_view>

namespace kite::tool {

/// Compact JSON text. A real has a fraction or an exponent and the shortest digits that read back
/// as the same number; one that is not finite becomes null.
void appendJSON(std::string& out, const JSONValue& value);
std::string toJSON(const JSONValue& value);

}  // namespace kite::tool
