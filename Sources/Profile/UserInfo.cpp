#include "Profile/UserInfo.h"

#include <Kite/Platform/LegacyArchive.h>

#include "JSON/DynamicConversion.h"
#include "Profile/TypedStorage.h"
#include "Profile/UserInfoKeys.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <mutex>
#include <string>
#include <utility>

namespace kite {

JSONValue JSONCoding<UserInfo>::encode(const UserInfo& userInfo) {
  return JSONValue::Object{{"data", userInfo.data}};
}

std::optional<UserInfo> JSONCoding<UserInfo>::decode(const JSONValue& json) {
  RecordReader reader(json);
  return reader.whole(UserInfo{.data = reader.required<JSONValue::Object>("data")});
}

namespace UserInfoStore {
namespace {

constexpr std::string_view legacyExperimentPrefix = "experiment_";

JSONValue::Object objectAt(const JSONValue::Object& data, std::string_view key) {
  const auto* value = data.at(key);
  return value && value->object() ? *value->object() : JSONValue::Object();
}

void setExperiment(JSONValue::Object& data, std::string_view name, JSONValue segment) {
  auto segments = objectAt(data, UserInfoKeys::experimentUserInfoKey);
  segments.insertOrAssign(std::string(name), std::move(segment));
  data.insertOrAssign(std::string(UserInfoKeys::experimentUserInfoKey), std::move(segments));
}

// The dictionary's order counts: a plain "experiment" entry replaces the segments seen before it.
JSONValue::Object migrated(const DynamicValue::Dictionary& legacy) {
  JSONValue::Object data;
  for (const auto& [key, value] : legacy) {
    const std::string_view name = *key.string();
    if (name.starts_with(legacyExperimentPrefix)) {
      setExperiment(data, name.substr(legacyExperimentPrefix.size()), migratedJSONValue(value));
    } else {
      data.insertOrAssign(std::string(name), migratedJSONValue(value));
    }
  }
  return data;
}

std::string decimalText(double number) {
  const bool isIntegral = std::isfinite(number) && std::trunc(number) == number;
  char digits[330];  // the longest integral number has 309
  auto* const end = isIntegral ? std::to_chars(std::begin(digits), std::end(digits), number,
                                               std::chars_format::fixed)
                                     .ptr
                               : std::to_chars(std::begin(digits), std::end(digits), number).ptr;
  return std::string(digits, end) + (isIntegral ? ".0" : "");
}

std::optional<std::string> numberText(const JSONValue& value) {
  if (value.integer()) return std::to_string(*value.integer());
  return value.real() ? std::optional(decimalText(*value.real())) : std::nullopt;
}

JSONValue::Object mergedUserInfo(Larder::SecretsStorage& store, const JSONValue::Object& data) {
  const std::scoped_lock guard(store);
  return userInfo(store)->data.merged(data);
}

}  // namespace

std::shared_ptr<const UserInfo> userInfo(Larder::SecretsStorage& store) {
  const std::scoped_lock guard(store);
  auto stored = load(store, kiteUserInfoKey);
  return stored ? stored : performMigration(store);
}

std::shared_ptr<const UserInfo> performMigration(Larder::SecretsStorage& store) {
  const std::scoped_lock guard(store);
  auto result =
      std::make_shared<const UserInfo>(UserInfo{migrated(keychainStoredInformation(store))});
  save(store, kiteUserInfoKey, *result);
  const auto stored = load(store, kiteUserInfoKey);
  return stored ? stored : result;
}

// The lock is not held while the disk is written to, so that a tracking call, which reads, does not
// wait for it. Of two updates at one time the later write counts, whole.
JSONValue::Object updateUserInfo(Larder::SecretsStorage& store, const JSONValue::Object& data) {
  save(store, kiteUserInfoKey, {mergedUserInfo(store, data)});
  return userInfo(store)->data;
}

void deleteKey(Larder::SecretsStorage& store, std::string_view key) {
  const std::scoped_lock guard(store);
  auto data = userInfo(store)->data;
  data.erase(key);
  save(store, kiteUserInfoKey, {std::move(data)});
}

void deleteDeviceName(Larder::SecretsStorage& store) {
  deleteKey(store, "device_name");
  const std::scoped_lock guard(store);
  auto data = userInfo(store)->data;
  const auto* stored = data.at("device");
  if (!stored || !stored->object()) return;
  auto device = *stored->object();
  device.erase("name");
  data.insertOrAssign("device", std::move(device));
  save(store, kiteUserInfoKey, {std::move(data)});
}

void ensureBundleVersionIsString(Larder::SecretsStorage& store) {
  const std::scoped_lock guard(store);
  auto data = userInfo(store)->data;
  const auto* version = data.at("bundle_version");
  auto text = version ? numberText(*version) : std::nullopt;
  if (!text) return;
  data.insertOrAssign("bundle_version", *std::move(text));
  save(store, kiteUserInfoKey, {std::move(data)});
}

DynamicValue::Dictionary keychainStoredInformation(Larder::SecretsStorage& store) {
  const auto archive = store.read(legacyUserInfoKey);
  auto dictionary =
      archive ? LegacyArchive::unarchiveDictionary(archive->data().bytes) : std::nullopt;
  const auto hasStringKey = [](const auto& entry) { return entry.key.string() != nullptr; };
  if (!dictionary || !std::ranges::all_of(*dictionary, hasStringKey)) return {};
  return *std::move(dictionary);
}

}  // namespace UserInfoStore

}  // namespace kite
