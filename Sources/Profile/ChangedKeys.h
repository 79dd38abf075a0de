#pragma once

#include <Kite/JSONValue.h>

#include <string>
#include <vector>

namespace kite {

/// Which of the keys that were to be set did change, and which ended up nowhere. Nested keys read
/// as dotted paths.
struct ChangedKeys {
  std::vector<std::string> updatedKeys;
  std::vector<std::string> lostKeys;

  friend bool operator==(const ChangedKeys&, const ChangedKeys&) = default;
};

/// Compares the user info before and after an update, for the keys of `newData`.
ChangedKeys extractChangedKeysFromDictionaries(const JSONValue::Object& oldUserInfo,
                                               const JSONValue::Object& newUserInfo,
                                               const JSONValue::Object& newData);

}  // namespace kite
