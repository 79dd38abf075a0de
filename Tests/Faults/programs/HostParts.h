#pragma once

#include <Kite/Kite.h>
#include <Kite/Linux/LinuxPlatform.h>

#include "Lines.h"

#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace kite::faults {

/// What these hosts give the library: stores under `--state`, uploads to `--endpoint`.
class HostParts {
 public:
  HostParts(const Options& options, ApplicationState state)
      : _options(options), _application(Linux::hostApplication(_center, state)) {}

  Linux::HostApplication& application() const { return *_application; }

  Platform platform() {
    Linux::PlatformOptions options{.applicationName = "kite-host"};
    options.kitbag = {.appVersion = "1.0", .bundleVersion = "1"};
    options.dataFolder = _options.text("state") + "/app";
    options.secretsFolder = _options.text("state") + "/secrets";
    if (_options.has("ca-file")) options.caFile = _options.text("ca-file");
    options.notificationCenter = _center;
    auto platform = Linux::platform(std::move(options));
    platform.queue = [this](const std::string& name) {
      auto queue = Linux::workerQueue(name);
      if (name != "kite.sync") _storageQueues.push_back(queue);
      return queue;
    };
    return platform;
  }

  KiteDependencies dependencies(const Platform& platform, bool syncOnSessionEnd = true) const {
    const auto endpoint = URL::parse(_options.text("endpoint", "https://127.0.0.1:9/v4/events"));
    if (!endpoint) throw std::runtime_error("--endpoint is no URL: " + endpoint.error());
    return {platform, FromCustomIDs{.installedBeforeKite = false,
                                    .customIDs = {},
                                    .endpoints = {.production = *endpoint, .staging = *endpoint},
                                    .sessionListener = SessionListener::notificationCenter(_center),
                                    .backgroundChecker = BackgroundChecker::uiApplication(
                                        _application, Linux::inlineMainThread()),
                                    .backgroundTaskScheduler =
                                        BackgroundTaskScheduler::uiApplication(_application),
                                    .lumoID = "kite-host",
                                    .wicketKey = _options.text("key"),
                                    .whisker = Linux::jsonLinesWhisker(),
                                    .storefrontProvider = [] { return std::nullopt; },
                                    .syncOnSessionEnd = syncOnSessionEnd}};
  }

  /// Returns once all that was tracked until now has reached the storage: a block that is put at
  /// the end of its queue runs after all before it.
  void settle() const {
    for (const auto& queue : _storageQueues) {
      const auto reached = std::make_shared<std::promise<void>>();
      queue->run([reached] { reached->set_value(); });
      reached->get_future().wait();
    }
  }

 private:
  const Options& _options;
  const std::shared_ptr<NotificationCenter> _center = Linux::notificationCenter();
  const std::shared_ptr<Linux::HostApplication> _application;
  std::vector<std::shared_ptr<Tempra::Queue>> _storageQueues;
};

}  // namespace kite::faults
