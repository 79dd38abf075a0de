#pragma once

#include <Kite/Kite.h>
#include <Kite/Linux/LinuxPlatform.h>

#include "Fixture/HandScheduler.h"
#include "Fixture/Settle.h"
#include "Fixture/WatchedStorage.h"
#include "Queue/EventStorageImpl.h"
#include "Upload/SynchronizationManagerImpl.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace kite::bench {

struct HostOptions {
  std::filesystem::path folder;
  std::shared_ptr<Tempra::Scheduler> scheduler = nullptr;  ///< else real timers
  std::shared_ptr<URLSession> network = nullptr;           ///< else libcurl
  URL endpoint = *URL::parse("https://127.0.0.1:9/v4/events");
  std::optional<std::filesystem::path> caFile = {};
};

/// A started facade on the real Linux parts, in the foreground and in a session, with the profile
/// of the reference event.
class StartedHost {
 public:
  explicit StartedHost(HostOptions options);

  KiteManager& kite() { return _kite; }
  void track(int count);
  void enterBackground();

  const WatchedStorage& store() const { return *_store; }
  /// The pending events as the disk has them.
  std::size_t storedEvents() const;
  std::string storedText() const;

  Tempra::Queue& storageQueue() { return *_storageQueue; }
  void settleStorage() { settle(*_storageQueue); }
  void settleUploads() { settle(*_syncQueue); }

 private:
  Platform platform();
  KiteDependencies dependencies();
  void setProfile();

  const HostOptions _options;
  const std::shared_ptr<NotificationCenter> _center = Linux::notificationCenter();
  const std::shared_ptr<Linux::HostApplication> _application;
  std::shared_ptr<WatchedStorage> _store;
  std::shared_ptr<Tempra::Queue> _storageQueue;
  std::shared_ptr<Tempra::Queue> _syncQueue;
  KiteManagerImpl _kite;
};

/// A host whose timers are run by hand.
class HandDrivenHost {
 public:
  explicit HandDrivenHost(HostOptions options)
      : _timers(std::make_shared<HandScheduler>()), _host(withTimers(std::move(options))) {}

  StartedHost& operator*() { return _host; }
  StartedHost* operator->() { return &_host; }

  void flush() {
    _host.settleStorage();  // the timer looks whether anything has changed
    _timers->fire(EventStorageImpl::syncInterval);
    _host.settleStorage();
  }
  /// Uploads one batch, if there is any, and waits until it has left the pending events.
  void upload() {
    _timers->fire(SynchronizationManagerImpl::autoSyncDefaultInterval);
    _host.settleUploads();
    _host.settleStorage();
  }

 private:
  HostOptions withTimers(HostOptions options) const {
    options.scheduler = _timers;
    return options;
  }

  const std::shared_ptr<HandScheduler> _timers;
  StartedHost _host;
};

}  // namespace kite::bench
