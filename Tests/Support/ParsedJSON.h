#pragma once

#include "JSON/JSONDecoder.h"

#include <stdexcept>
#include <string>
#include <string_view>

namespace kite::test {

/// The value that a JSON text stands for. A text that is not JSON fails the test.
inline JSONValue parsed(std::string_view text) {
  auto json = decodeJSON(text);
  if (!json) throw std::invalid_argument("not JSON: " + std::string(text));
  return *std::move(json);
}

inline JSONValue::Object parsedObject(std::string_view text) {
  const auto json = parsed(text);
  if (!json.object()) throw std::invalid_argument("not a JSON object: " + std::string(text));
  return *json.object();
}

}  // namespace kite::test
