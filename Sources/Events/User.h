#pragma once

#include <Kite/JSONValue.h>

#include <map>
#include <string>

namespace kite {

/// Who an event is about.
struct User {
  JSONValue::Object info;
  std::map<std::string, std::string, std::less<>> ids;

  friend bool operator==(const User&, const User&) = default;
};

}  // namespace kite
