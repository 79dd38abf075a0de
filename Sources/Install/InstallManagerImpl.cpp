#include "Install/InstallManagerImpl.h"

#include <Kite/Platform/LegacyArchive.h>

#include "Install/DocumentDirectory.h"
#include "Install/LegacyInstallRecord.h"
#include "Profile/TypedStorage.h"
#include "Profile/UserInfo.h"
#include "Queue/EventManager.h"

#include <utility>

namespace kite {
namespace {

template <class T>
std::optional<T> firstOf(std::optional<T> preferred, std::optional<T> other) {
  return preferred ? std::move(preferred) : std::move(other);
}

std::optional<std::string> legacyAppVersion(Larder::SecretsStorage& secrets) {
  const auto legacy = UserInfoStore::keychainStoredInformation(secrets);
  const auto* version = valueFor(legacy, "app_version");
  return version && version->string() ? std::optional(*version->string()) : std::nullopt;
}

// An application whose identifiers both existed and whose version did not change was not installed.
bool wasInstalled(Usher::CreationType userDefaults, Usher::CreationType keychain,
                  const std::optional<std::string>& oldVersion, const std::string& newVersion) {
  return userDefaults != Usher::CreationType::readFromFile ||
         keychain != Usher::CreationType::readFromFile || oldVersion != newVersion;
}

}  // namespace

InstallManagerImpl::InstallManagerImpl(System system) : _system(std::move(system)) {}

void InstallManagerImpl::start(InstallManagerDependencies dependencies) {
  _dependencies.set(std::move(dependencies));
  performMigrationIfNeeded();
  const auto old = resolvedInformations();
  auto payload = computeInstallEvent(old);
  if (!payload) return;
  updateData(payload->installedBeforeKite, old.firstInstallTimestamp);
  _dependencies->eventManager->trackInstallEvent(*std::move(payload));
}

StoredInformations InstallManagerImpl::ssInfo() {
  const auto record = ssRecord();
  return record ? *record : StoredInformations{};
}

StoredInformations InstallManagerImpl::kvInfo() {
  const auto record = kvRecord();
  return record ? *record : StoredInformations{};
}

void InstallManagerImpl::performMigrationIfNeeded() {
  const auto dependencies = _dependencies.get();
  if (!ssRecord()) {
    const auto archive = dependencies->secretsStorage->read(legacyKey);
    const auto legacy =
        archive ? LegacyArchive::unarchiveDictionary(archive->data().bytes) : std::nullopt;
    if (legacy) setSSRecord(fromLegacyRecord(*legacy));
  }
  if (!kvRecord()) {
    const auto list = dependencies->kvStorage->readPropertyList(legacyKey);
    const auto legacy = list ? LegacyArchive::propertyListDictionary(list->bytes) : std::nullopt;
    if (legacy) setKVRecord(fromLegacyRecord(*legacy));
  }
}

StoredInformations InstallManagerImpl::resolvedInformations() {
  const auto dependencies = _dependencies.get();
  const auto ss = ssInfo();
  const auto kv = kvInfo();
  auto appVersion = firstOf(ss.appVersion, kv.appVersion);
  if (!appVersion) appVersion = legacyAppVersion(*dependencies->secretsStorage);
  return {.firstInstallTimestamp = firstOf(ss.firstInstallTimestamp, kv.firstInstallTimestamp),
          .installedBeforeKite = firstOf(firstOf(ss.installedBeforeKite, kv.installedBeforeKite),
                                         std::optional(dependencies->installedBeforeKite)),
          .appVersion = std::move(appVersion),
          .bundleVersion = firstOf(ss.bundleVersion, kv.bundleVersion)};
}

std::optional<InstallPayload> InstallManagerImpl::computeInstallEvent(
    const StoredInformations& old) const {
  const auto dependencies = _dependencies.get();
  const auto userDefaults = dependencies->idProvider->userDefaultsId().creationType;
  const auto keychain = dependencies->idProvider->keychainId().creationType;
  if (!wasInstalled(userDefaults, keychain, old.appVersion, dependencies->currentAppVersion))
    return std::nullopt;
  return InstallPayload{.id = _system.randomUUID(),
                        .timestamp = _system.now().secondsSince1970,
                        .installedBeforeKite = old.installedBeforeKite.value_or(false),
                        .keychainStatus = keychain,
                        .userdefaultStatus = userDefaults,
                        .oldBundleVersion = old.bundleVersion,
                        .oldAppVersion = old.appVersion,
                        .newAppVersion = dependencies->currentAppVersion,
                        .documentDirectoryCreationTimestamp =
                            documentDirectoryCreationTimestamp(dependencies->fileManager)};
}

void InstallManagerImpl::updateData(bool installedBeforeKite,
                                    std::optional<double> firstInstallTimestamp) {
  const auto dependencies = _dependencies.get();
  const auto kv = kvInfo();
  const auto ss = ssInfo();
  const StoredInformations informations{
      .firstInstallTimestamp = firstInstallTimestamp
                                   ? firstInstallTimestamp
                                   : std::optional(dependencies->now().secondsSince1970),
      .installedBeforeKite =
          installedBeforeKite ||
          firstOf(ss.installedBeforeKite, kv.installedBeforeKite).value_or(false),
      .appVersion = dependencies->currentAppVersion,
      .bundleVersion = dependencies->currentBundleVersion};

  auto& secrets = *dependencies->secretsStorage;
  const auto written = UserInfoStore::updateUserInfo(
      secrets, {{"app_version", dependencies->currentAppVersion},
                {"bundle_version", dependencies->currentBundleVersion},
                {"installed_before_kite", installedBeforeKite}});
  setKVRecord(informations);
  setSSRecord(informations);
  UserInfoStore::updateUserInfo(secrets, written);  // once more, as ever: it changes nothing
}

InstallManagerImpl::Found InstallManagerImpl::ssRecord() {
  const auto dependencies = _dependencies.get();
  const std::scoped_lock guard(_ssLock);
  return load(*dependencies->secretsStorage, informationsKey);
}

InstallManagerImpl::Found InstallManagerImpl::kvRecord() {
  const auto dependencies = _dependencies.get();
  const std::scoped_lock guard(_kvLock);
  return load(*dependencies->kvStorage, informationsKey);
}

void InstallManagerImpl::setSSRecord(const StoredInformations& informations) {
  const auto dependencies = _dependencies.get();
  const std::scoped_lock guard(_ssLock);
  save(*dependencies->secretsStorage, informationsKey, informations);
}

void InstallManagerImpl::setKVRecord(const StoredInformations& informations) {
  const auto dependencies = _dependencies.get();
  const std::scoped_lock guard(_kvLock);
  save(*dependencies->kvStorage, informationsKey, informations);
}

}  // namespace kite
