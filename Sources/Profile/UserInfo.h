#pragma once

#include <Kite/DynamicValue.h>
#include <Kite/JSONValue.h>
#include <Kite/Platform/Larder.h>

#include "JSON/JSONCoding.h"

#include <memory>
#include <optional>
#include <string_view>

namespace kite {

/// The profile of the user that every event carries.
struct UserInfo {
  JSONValue::Object data;

  friend bool operator==(const UserInfo&, const UserInfo&) = default;
};

template <>
struct JSONCoding<UserInfo> {
  static JSONValue encode(const UserInfo& userInfo);
  static std::optional<UserInfo> decode(const JSONValue& json);
};

/// Operations on the user info in a secrets store. Each locks the store; they may be nested in a
/// lock of the caller's.
namespace UserInfoStore {

inline constexpr Larder::Key<UserInfo> kiteUserInfoKey{"Kite-User-Info"};
inline constexpr std::string_view legacyUserInfoKey = "USUserInfo";

/// The stored user info; when there is none, what the migration makes of the legacy one. The same
/// object until it changes.
std::shared_ptr<const UserInfo> userInfo(Larder::SecretsStorage& store);

/// Moves the legacy dictionary into the current form and stores that. The legacy entry stays in
/// place.
std::shared_ptr<const UserInfo> performMigration(Larder::SecretsStorage& store);

/// Merges `data` in, new values winning, and gives the whole as it is stored afterwards.
JSONValue::Object updateUserInfo(Larder::SecretsStorage& store, const JSONValue::Object& data);

void deleteKey(Larder::SecretsStorage& store, std::string_view key);
void deleteDeviceName(Larder::SecretsStorage& store);
void ensureBundleVersionIsString(Larder::SecretsStorage& store);

/// The dictionary that earlier versions archived; empty when there is none that can be read.
DynamicValue::Dictionary keychainStoredInformation(Larder::SecretsStorage& store);

}  // namespace UserInfoStore

}  // namespace kite
