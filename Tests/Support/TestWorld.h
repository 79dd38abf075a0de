#pragma once

#include <Kite/Kite.h>

#include "Support/FakeApplication.h"
#include "Support/FakeMainThread.h"
#include "Support/FakeNotificationCenter.h"
#include "Support/FakeSystem.h"
#include "Support/FakeURLSession.h"
#include "Support/FakeUsher.h"
#include "Support/FakeWhisker.h"
#include "Support/InMemoryKVStorage.h"
#include "Support/InMemorySecretsStorage.h"
#include "Support/Queues.h"
#include "Support/VirtualTime.h"
#include "Values/JSONDecoder.h"

#include <memory>
#include <string>
#include <vector>

namespace kite::test {

/// Everything outside a facade: a machine, a network, stores, an application. Declare it before the
/// facade.
struct TestWorld {
  FakeSystem system;
  std::shared_ptr<VirtualTime> time = std::make_shared<VirtualTime>();
  std::shared_ptr<InMemoryKVStorage> keyValues = std::make_shared<InMemoryKVStorage>();
  std::shared_ptr<InMemorySecretsStorage> secrets = std::make_shared<InMemorySecretsStorage>();
  std::shared_ptr<FakeUsher> usher = std::make_shared<FakeUsher>();
  FakeURLSession network;
  std::shared_ptr<FakeApplication> application = std::make_shared<FakeApplication>();
  std::shared_ptr<FakeMainThread> mainThread = std::make_shared<FakeMainThread>();
  std::shared_ptr<FakeNotificationCenter> center = std::make_shared<FakeNotificationCenter>();
  std::shared_ptr<FakeWhisker> whisker = std::make_shared<FakeWhisker>();
  std::shared_ptr<Tempra::Queue> storageQueue = std::make_shared<ImmediateQueue>();
  std::shared_ptr<Tempra::Queue> syncQueue = std::make_shared<ImmediateQueue>();
  AttributionClient attribution = AttributionClient::none();
  Locale locale{.identifier = "en_US", .regionCode = "US", .preferredLanguages = {"en-US"}};
  Kitbag kitbag{.appVersion = "1.0",
                .bundleVersion = "100",
                .distributionChannel = DistributionChannel::debug};
  std::vector<std::string>
      made;  ///< the platform's parts in the order in which they were asked for

  /// The platform made of the fakes. The world must outlive it.
  Platform platform() {
    return {
        .kitbag = [this] { return note("kitbag", kitbag); },
        .kvStorage =
            [this] { return note<std::shared_ptr<Larder::KVStorage>>("kvStorage", keyValues); },
        .secretsStorage =
            [this](const Kitbag&) {
              return note<std::shared_ptr<Larder::SecretsStorage>>("secretsStorage", secrets);
            },
        .urlSession = [this] { return note("urlSession", network.urlSession()); },
        .notificationCenter =
            [this] {
              return note<std::shared_ptr<NotificationCenter>>("notificationCenter", center);
            },
        .fileManager = [this] { return note("fileManager", fileManager()); },
        .locale = [this] { return note("locale", locale); },
        .device = [this] { return note("device", device()); },
        .timeZone = [this] { return note("timeZone", timeZone()); },
        .attributionClient = [this] { return note("attributionClient", attribution); },
        .scheduler = [this] { return note<std::shared_ptr<Tempra::Scheduler>>("scheduler", time); },
        .timeProvider = [this] { return note("timeProvider", time->provider()); },
        .queue =
            [this](const std::string& name) {
              return note(name.c_str(), name == "kite.sync" ? syncQueue : storageQueue);
            },
        .randomUUID = system.system().randomUUID,
        .usherManager =
            [this] { return note<std::shared_ptr<Usher::UsherManager>>("usherManager", usher); },
        .advertisingIdentifier = [] { return std::nullopt; },
        .notBackuppableIdFolder = [] { return std::nullopt; },
        .libraryShortVersion = "1.0.0"};
  }

  FromIDProvider given() {
    return {.installedBeforeKite = false,
            .idProvider = usher,
            .kitbag = kitbag,
            .endpoints = {.production = *URL::parse("https://production.test/v4/events"),
                          .staging = *URL::parse("https://staging.test/v4/events")},
            .sessionListener = SessionListener::notificationCenter(center),
            .backgroundChecker = BackgroundChecker::uiApplication(application, mainThread),
            .backgroundTaskScheduler = BackgroundTaskScheduler::uiApplication(application),
            .lumoID = "trail-maps",
            .wicketKey = "key",
            .whisker = whisker,
            .storefrontProvider = [] { return std::nullopt; },
            .syncOnSessionEnd = false};
  }

  KiteDependencies dependencies() { return KiteDependencies(platform(), given()); }

  void enterBackground() {
    application->setState(ApplicationState::background);
    center->enterBackground();
  }
  void enterForeground() {
    application->setState(ApplicationState::active);
    center->enterForeground();
  }

  /// The stored queue, decoded.
  JSONValue::Array persistedEvents() const {
    const auto events = decodeJSON(keyValues->text("kite_pending_events"));
    return events && events->array() ? *events->array() : JSONValue::Array{};
  }

 private:
  template <class T>
  T note(const char* part, T value) {
    made.emplace_back(part);
    return value;
  }

  static FileManager fileManager() {
    return {.urlsForDirectory = [](int, int) { return std::vector<std::string>{}; },
            .attributesOfItem = [](const std::string&) { return std::optional<FileAttributes>(); }};
  }
  static std::shared_ptr<const Device> device() {
    return std::make_shared<const Device>(
        Device{.systemVersion = "12",
               .model = "Phone",
               .machine =
                   [] {
                     return Device::MachineField{'P', '1'};
                   },
               .identifierForVendor = [] { return std::nullopt; }});
  }
  static TimeZone timeZone() {
    return {.identifier = "UTC",
            .secondsFromUTC = [](Date) { return 0; },
            .isDaylightSavingTime = [](Date) { return false; }};
  }
};

}  // namespace kite::test
