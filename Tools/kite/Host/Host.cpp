#include "Host/Host.h"

#include <Kite/BackgroundChecker.h>
#include <Kite/BackgroundTaskScheduler.h>
#include <Kite/KiteManagerImpl.h>
#include <Kite/KiteNoop.h>

#include "Host/AttributionFile.h"
#include "Host/HostLocale.h"

#include <future>

namespace kite::tool {
namespace {

AttributionClient attributionClient(const HostOptions& options) {
  if (!options.attribution) return AttributionClient::none();
  return AttributionClient::live([details = readAttributionFile(*options.attribution)](
                                     const auto& callback) { callback(details, std::nullopt); });
}

ApplicationState initialState(const HostOptions& options) {
  return options.startsInBackground ? ApplicationState::background : ApplicationState::active;
}

std::unique_ptr<KiteManager> facade(const HostOptions& options) {
  if (options.isNoop) return std::make_unique<KiteNoop>();
  return std::make_unique<KiteManagerImpl>();
}

KiteEndpoints endpoints(const HostOptions& options) {
  if (!options.endpoint) return KiteEndpoints::defaultEndpoints();
  return {.production = *options.endpoint, .staging = *options.endpoint};
}

Usher::CustomIdentifiers customIDs(const HostOptions& options) {
  Usher::CustomIdentifiers identifiers;
  for (const auto& entry : options.customIDs)
    identifiers.emplace(entry.first, [value = entry.second] { return value; });
  return identifiers;
}

std::optional<std::filesystem::path> folder(const HostOptions& options, const char* name) {
  return options.state ? std::optional(*options.state / name) : std::nullopt;
}

}  // namespace

Host::Host(HostOptions options)
    : _options(std::move(options)),
      _attributionClient(attributionClient(_options)),
      _application(Linux::hostApplication(_center, initialState(_options))),
      _kite(facade(_options)) {
  if (_options.hasManualSessions) _manualSessions = SessionListener::manual();
  _sessions =
      _manualSessions ? _manualSessions->witness : SessionListener::notificationCenter(_center);
}

void Host::start() {
  if (_options.isNoop) return;
  if (!_dependencies) _dependencies = dependencies();
  _kite->start(*_dependencies);
}

void Host::awaitStorage() {
  if (!_dependencies) return;
  std::promise<void> isReached;
  _dependencies->eventStorageQueue->run([&] { isReached.set_value(); });
  isReached.get_future().wait();
}

const ManualSessionListener* Host::manualSessions() const {
  return _manualSessions ? &*_manualSessions : nullptr;
}

Platform Host::platform() const {
  auto platform = Linux::platform({.applicationName = "kite-host",
                                   .kitbag = _options.kitbag,
                                   .dataFolder = folder(_options, "app"),
                                   .secretsFolder = folder(_options, "secrets"),
                                   .caFile = _options.caFile,
                                   .attributionClient = _attributionClient,
                                   .notificationCenter = _center});
  platform.locale = [locale = hostLocale(_options, platform.locale())] { return locale; };
  return platform;
}

KiteDependencies Host::dependencies() const {
  KiteDependencies dependencies(
      platform(),
      FromCustomIDs{.installedBeforeKite = _options.installedBeforeKite,
                    .customIDs = customIDs(_options),
                    .endpoints = endpoints(_options),
                    .sessionListener = _sessions,
                    .backgroundChecker =
                        BackgroundChecker::uiApplication(_application, Linux::inlineMainThread()),
                    .backgroundTaskScheduler = BackgroundTaskScheduler::uiApplication(_application),
                    .lumoID = _options.lumoID,
                    .wicketKey = _options.key,
                    .whisker = Linux::jsonLinesWhisker(),
                    .storefrontProvider = [storefront = _options.storefront] { return storefront; },
                    .syncOnSessionEnd = _options.syncsOnSessionEnd});
  dependencies.secondaryURLs = _options.secondaries;
  return dependencies;
}

}  // namespace kite::tool
