#include "Base/Weakly.h"
#include "Facade/KiteState.h"
#include "JSON/DynamicConversion.h"
#include "Profile/ChangedKeys.h"
#include "Profile/StartupUserInfo.h"
#include "Profile/UserInfo.h"
#include "Profile/UserInfoKeys.h"

#include <mutex>
#include <utility>

namespace kite {

using namespace UserInfoKeys;

namespace {

JSONValue::Array textArray(const std::vector<std::string>& texts) {
  return JSONValue::Array(texts.begin(), texts.end());
}

JSONValue::Object attributionObject(const AttributionClient::Details& details) {
  JSONValue::Object::Entries entries;
  for (const auto& [name, object] : details) {
    if (auto value = toJSONValue(&object)) entries.emplace_back(name, *std::move(value));
  }
  return JSONValue::Object::fromUnsorted(std::move(entries));
}

}  // namespace

void KiteState::configureUserInfo() {
  const auto bundle = dependencies.get();
  UserInfoStore::deleteDeviceName(*bundle->secretsStorage);
  UserInfoStore::ensureBundleVersionIsString(*bundle->secretsStorage);
  auto info = startupUserInfo({.locale = bundle->locale,
                               .appVersion = bundle->currentAppVersion,
                               .bundleVersion = bundle->bundleVersion,
                               .timeZone = bundle->timeZone,
                               .device = *bundle->device,
                               .libraryShortVersion = bundle->libraryShortVersion,
                               .now = system.now()});
  updateUserInfo(*bundle->secretsStorage, info);
  requestAttribution(*bundle, std::move(info));
}

// The reply repeats the whole start-up info beside "search_ads": a host may have changed one of its
// keys meanwhile, and the start-up value then counts again. It belongs to the profile that was
// asked for, whatever has been started since.
void KiteState::requestAttribution(const KiteDependencies& bundle, JSONValue::Object startupInfo) {
  bundle.attributionClient.requestAttributionDetails(weakly(
      weak_from_this(),
      [secrets = bundle.secretsStorage, info = std::move(startupInfo)](
          KiteState& self, const std::optional<AttributionClient::Details>& details,
          const std::optional<std::string>& /*error*/) {
        if (!details) return;
        self.updateUserInfo(
            *secrets, info.merged({{std::string(searchAdsKey), attributionObject(*details)}}));
      }));
}

JSONValue::Object KiteState::userInfo() {
  return UserInfoStore::userInfo(*dependencies->secretsStorage)->data;
}

std::optional<JSONValue> KiteState::monetizationField(Larder::SecretsStorage& secrets) {
  const auto info = UserInfoStore::userInfo(secrets);
  const JSONValue* field = info->data.at(monetizationUserInfoKey);
  return field ? std::optional(*field) : std::nullopt;
}

// While the facade is disabled only experiment segments pass, on purpose.
bool KiteState::mayUpdate(const JSONValue::Object& newData) const {
  return enabled || newData.contains(experimentUserInfoKey);
}

void KiteState::updateUserInfo(const JSONValue::Object& newData) {
  updateUserInfo(*dependencies->secretsStorage, newData);
}

void KiteState::updateUserInfo(Larder::SecretsStorage& secrets, const JSONValue::Object& newData) {
  if (!mayUpdate(newData)) return;
  const auto before = UserInfoStore::userInfo(secrets);
  const auto after = UserInfoStore::updateUserInfo(secrets, newData);
  trackUserInfoUpdated(before->data, after, newData);
}

void KiteState::trackUserInfoUpdated(const JSONValue::Object& oldUserInfo,
                                     const JSONValue::Object& newUserInfo,
                                     const JSONValue::Object& newData) {
  if (!mayUpdate(newData)) return;
  auto changed = extractChangedKeysFromDictionaries(oldUserInfo, newUserInfo, newData);
  if (changed.updatedKeys.empty() && changed.lostKeys.empty()) return;
  eventManager->trackUserInfoUpdated({.oldUserInfo = oldUserInfo,
                                      .newUserInfo = newUserInfo,
                                      .updatedKeys = std::move(changed.updatedKeys),
                                      .lostKeys = changed.lostKeys,
                                      .id = system.randomUUID(),
                                      .timestamp = system.now().secondsSince1970});
  if (changed.lostKeys.empty()) return;
  eventManager->trackDebugEvent(
      {.id = system.randomUUID(),
       .timestamp = system.now().secondsSince1970,
       .severity = Severity::warning,
       .message = "UserInfoUpdated_LostKeys",
       .category = "kite_automatic",
       .domain = std::nullopt,
       .code = std::nullopt,
       .type = std::nullopt,
       .description = std::nullopt,
       .info = {{"lost_keys", textArray(changed.lostKeys)}},
       .file = facadeSourcePath,
       .function = "trackUserInfoUpdated(oldUserInfo:newUserInfo:newData:eventManager:)",
       .line = 864});
}

void KiteState::monetizationFieldsDidChange(const JSONValue::Object& newValue) {
  const auto bundle = dependencies.get();
  const auto stored = monetizationField(*bundle->secretsStorage);
  if (!enabled) return;
  const JSONValue::Object* fields = stored ? stored->object() : nullptr;
  updateUserInfo(*bundle->secretsStorage, {{std::string(monetizationUserInfoKey),
                                            fields ? fields->merged(newValue) : newValue}});
}

void KiteState::boolUserInfoDidChange(std::string_view key, bool newValue) {
  const auto bundle = dependencies.get();
  const auto info = UserInfoStore::userInfo(*bundle->secretsStorage);
  if (!enabled) return;
  const JSONValue* stored = info->data.at(key);
  if (stored && stored->boolean() && *stored->boolean() == newValue) return;
  updateUserInfo(*bundle->secretsStorage, {{std::string(key), newValue}});
}

}  // namespace kite
