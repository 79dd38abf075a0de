#pragma once

#include <Kite/Kite.h>

#include "JSON/JSONDecoder.h"
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

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kite::test {

/// Everything outside a facade: a machine, a network, stores, an application. Declare it before the
/// facade.
///
/// The bundle's clock and UUIDs are not the machine's, so that a test can tell them apart.
struct TestWorld {
  FakeSystem system;
  std::shared_ptr<VirtualTime> time = std::make_shared<VirtualTime>(Date{1'800'000'000});
  std::atomic<std::uint32_t> drawnBundleUUIDs = 0;
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
  std::shared_ptr<const Device> device =
      std::make_shared<const Device>(Device{.systemVersion = "12",
                                            .model = "Phone",
                                            .machine =
                                                [] {
                                                  return Device::MachineField{'P', '1'};
                                                },
                                            .identifierForVendor = [] { return std::nullopt; }});
  TimeZone timeZone{.identifier = "UTC",
                    .secondsFromUTC = [](Date) { return 0; },
                    .isDaylightSavingTime = [](Date) { return false; }};
  FileManager fileManager{
      .urlsForDirectory = [](int, int) { return std::vector<std::string>{"/documents"}; },
      .attributesOfItem = [](const std::string&) { return std::optional<FileAttributes>(); }};
  std::vector<std::string>
      made;  ///< the platform's parts in the order in which they were asked for
  std::optional<Kitbag> secretsKitbag;  ///< what the secrets store was asked for with

  /// The platform made of the fakes. The world must outlive it.
  Platform platform() {
    return {
        .kitbag = [this] { return note("kitbag", kitbag); },
        .kvStorage =
            [this] { return note<std::shared_ptr<Larder::KVStorage>>("kvStorage", keyValues); },
        .secretsStorage =
            [this](const Kitbag& asked) {
              secretsKitbag = asked;
              return note<std::shared_ptr<Larder::SecretsStorage>>("secretsStorage", secrets);
            },
        .urlSession = [this] { return note("urlSession", network.urlSession()); },
        .notificationCenter =
            [this] {
              return note<std::shared_ptr<NotificationCenter>>("notificationCenter", center);
            },
        .fileManager = [this] { return note("fileManager", fileManager); },
        .locale = [this] { return note("locale", locale); },
        .device = [this] { return note("device", device); },
        .timeZone = [this] { return note("timeZone", timeZone); },
        .attributionClient = [this] { return note("attributionClient", attribution); },
        .scheduler = [this] { return note<std::shared_ptr<Tempra::Scheduler>>("scheduler", time); },
        .timeProvider = [this] { return note("timeProvider", time->provider()); },
        .queue =
            [this](const std::string& name) {
              return note(name.c_str(), name == "kite.sync" ? syncQueue : storageQueue);
            },
        .randomUUID = [this] { return bundleUUID(++drawnBundleUUIDs); },
        .usherManager =
            [this] { return note<std::shared_ptr<Usher::UsherManager>>("usherManager", usher); },
        .advertisingIdentifier = [] { return "advertising-id"; },
        .notBackuppableIdFolder = [] { return "/not-backed-up"; },
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

  /// The UUID that the bundle draws as the `number`th, from 1.
  static UUID bundleUUID(std::uint32_t number) {
    auto uuid = FakeSystem::uuid(number);
    uuid.bytes[0] = 0xB0;
    return uuid;
  }
  /// The machine with a clock that is a second later at every reading, the caller's included.
  System tickingSystem() const {
    auto ticking = system.system();
    ticking.now = [now = ticking.now, readings = std::make_shared<std::atomic<int>>(0)] {
      return now() + ++*readings;
    };
    return ticking;
  }

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
  /// The queue as the next flush stores it.
  JSONValue::Array flushedEvents() {
    time->advance(Tempra::Duration(10));
    return persistedEvents();
  }
  /// Those of one type, after a flush.
  std::vector<JSONValue::Object> flushedEvents(std::string_view type) {
    std::vector<JSONValue::Object> found;
    for (const auto& event : flushedEvents())
      if (*event.object()->at("type")->string() == type) found.push_back(*event.object());
    return found;
  }

  /// Whether `checker` asks this world's application.
  bool isAskedBy(const BackgroundChecker& checker) const {
    application->setState(ApplicationState::background);
    const bool inBackground = checker.isInBackground();
    application->setState(ApplicationState::active);
    return inBackground && !checker.isInBackground();
  }
  /// Whether `listener` follows this world's application. Without other handlers it does so no more
  /// afterwards.
  bool isHeardBy(const SessionListener& listener) const {
    int signals = 0;
    const auto start = listener.onSessionStart([&] { ++signals; });
    const auto end = listener.onSessionEnd([&] { ++signals; });
    center->enterForeground();
    center->enterBackground();
    listener.detachSessionStart(start);
    listener.detachSessionEnd(end);
    return signals == 2;
  }
  /// Whether `scheduler` begins and ends its tasks with this world's application.
  bool isAskedForTasksBy(const BackgroundTaskScheduler& scheduler) const {
    const auto begunBefore = application->begunTasks();
    scheduler.endBackgroundTask(scheduler.beginBackgroundTask(std::nullopt));
    return application->begunTasks() == begunBefore + 1 && application->runningTasks() == 0;
  }

 private:
  template <class T>
  T note(const char* part, T value) {
    made.emplace_back(part);
    return value;
  }
};

}  // namespace kite::test
