#include "Fixture/StartedHost.h"

#include "Fixture/QuietSystem.h"
#include "Fixture/ReferenceEvent.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>

namespace kite::bench {
namespace {

Kitbag kitbag() {
  return {.appVersion = "12.4.1",
          .bundleVersion = "20311",
          .distributionChannel = DistributionChannel::appStore};
}

Locale locale() {
  return {.identifier = "en_NZ", .regionCode = "NZ", .preferredLanguages = {"en-NZ", "mi-NZ"}};
}

TimeZone timeZone() {
  return {.identifier = "Pacific/Auckland",
          .secondsFromUTC = [](Date) { return 13 * 3600; },
          .isDaylightSavingTime = [](Date) { return true; }};
}

Device device() {
  const auto machine = [] {
    constexpr std::string_view name = "Phone15,2";
    Device::MachineField field{};
    std::copy(name.begin(), name.end(), field.begin());
    return field;
  };
  return {
      .systemVersion = "17.4.1", .model = "Phone", .machine = machine, .identifierForVendor = [] {
        return "B61F90C3-77AD-4C2E-8E05-6A4D12F89B37";
      }};
}

Usher::CustomIdentifiers identifiers() {
  return {{"user_id", [] { return "5F3C1B7E-8A40-4D1B-9C11-2B7A60F4E9D1"; }}};
}

}  // namespace

StartedHost::StartedHost(HostOptions options)
    : _options(std::move(options)),
      _application(Linux::hostApplication(_center)),
      _kite(quietSystem()) {
  _kite.start(dependencies());
  setProfile();
  settleStorage();
}

void StartedHost::track(int count) {
  for (int number = 0; number < count; ++number)
    _kite.trackUserAction(actionName, actionProperties(number));
}

void StartedHost::enterBackground() {
  _application->didEnterBackground();
  settleStorage();
}

std::size_t StartedHost::storedEvents() const {
  const auto list = _store->readList(EventStorageImpl::pendingEventsKey);
  return list ? list->rows.size() : 0;
}

std::string StartedHost::storedText() const {
  const auto value = _store->read(EventStorageImpl::pendingEventsKey);
  return value ? value->data().bytes : "";
}

Platform StartedHost::platform() {
  Linux::PlatformOptions options{.applicationName = application};
  options.kitbag = kitbag();
  options.dataFolder = _options.folder / "app";
  options.secretsFolder = _options.folder / "secrets";
  options.caFile = _options.caFile;
  options.locale = locale();
  options.notificationCenter = _center;
  options.system = quietSystem();
  auto platform = Linux::platform(std::move(options));
  platform.kvStorage = [this, make = platform.kvStorage] {
    return _store = std::make_shared<WatchedStorage>(make());
  };
  platform.queue = [this](const std::string& name) {
    return (name == "kite.sync" ? _syncQueue : _storageQueue) = Linux::workerQueue(name);
  };
  platform.device = [] { return std::make_shared<const Device>(device()); };
  platform.timeZone = timeZone;
  platform.libraryShortVersion = "7.3.0";
  if (_options.scheduler) platform.scheduler = [this] { return _options.scheduler; };
  if (_options.network) platform.urlSession = [this] { return _options.network; };
  return platform;
}

KiteDependencies StartedHost::dependencies() {
  const auto& endpoint = _options.endpoint;
  return {
      platform(),
      FromCustomIDs{.installedBeforeKite = false,
                    .customIDs = identifiers(),
                    .endpoints = {.production = endpoint, .staging = endpoint},
                    .sessionListener = SessionListener::notificationCenter(_center),
                    .backgroundChecker =
                        BackgroundChecker::uiApplication(_application, Linux::inlineMainThread()),
                    .backgroundTaskScheduler = BackgroundTaskScheduler::uiApplication(_application),
                    .lumoID = application,
                    .wicketKey = "d41c9a4e0b7f4f6c8f5d2f7ab6c0e1d3",
                    .whisker = Linux::jsonLinesWhisker(_options.folder / "whisker.jsonl"),
                    .storefrontProvider = [] { return std::nullopt; },
                    .syncOnSessionEnd = false}};
}

void StartedHost::setProfile() {
  _kite.trackExperimentSegmentsReceived(experiments());
  _kite.monetizationFieldsDidChange(monetization());
  _kite.isBaselineUserDidChange(false);
  _kite.isFreeUserDidChange(false);
  _kite.updateUserInfo(installation());
}

}  // namespace kite::bench
