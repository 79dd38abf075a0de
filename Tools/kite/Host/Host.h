#pragma once

#include <Kite/KiteDependencies.h>
#include <Kite/KiteManagerImpl.h>
#include <Kite/Linux/LinuxPlatform.h>

#include "Host/HostOptions.h"

#include <functional>
#include <memory>
#include <optional>

namespace kite::tool {

/// An application that holds the library. It is in the foreground unless its options say otherwise.
class Host {
 public:
  /// Reads the attribution file; throws `CommandFailure` when there is something wrong with it.
  explicit Host(HostOptions options);

  KiteManager& kite() { return *_kite; }
  /// Null with the inert facade, in which nothing ever happens.
  KiteManagerImpl* live() { return dynamic_cast<KiteManagerImpl*>(_kite.get()); }
  /// Opens the stores at the first call; with the inert facade there is nothing to open.
  void start();
  /// Returns when the storage's queue has done all that was asked of it before.
  void awaitStorage();
  Linux::HostApplication& application() { return *_application; }
  /// Null when sessions are automatic.
  const ManualSessionListener* manualSessions() const;

 private:
  Platform platform() const;
  KiteDependencies dependencies() const;

  HostOptions _options;
  AttributionClient _attributionClient;
  std::shared_ptr<NotificationCenter> _center = Linux::notificationCenter();
  std::shared_ptr<Linux::HostApplication> _application;
  std::optional<ManualSessionListener> _manualSessions;
  SessionListener _sessions;
  std::optional<KiteDependencies> _dependencies;
  std::unique_ptr<KiteManager> _kite;
};

}  // namespace kite::tool
