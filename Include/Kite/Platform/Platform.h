#pragma once

#include <Kite/AttributionClient.h>
#include <Kite/Platform/Application.h>
#include <Kite/Platform/Device.h>
#include <Kite/Platform/FileManager.h>
#include <Kite/Platform/Kitbag.h>
#include <Kite/Platform/Larder.h>
#include <Kite/Platform/Locale.h>
#include <Kite/Platform/MainThread.h>
#include <Kite/Platform/NotificationCenter.h>
#include <Kite/Platform/System.h>
#include <Kite/Platform/Tempra.h>
#include <Kite/Platform/URLSession.h>
#include <Kite/Platform/Usher.h>
#include <Kite/Platform/Whisker.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace kite {

/// The platform's parts, made on demand: all that a dependency bundle takes from the platform by
/// itself.
///
/// Every field is required. A port supplies one function that fills this record.
struct Platform {
  std::function<Kitbag()> kitbag;
  std::function<std::shared_ptr<Larder::KVStorage>()> kvStorage;
  std::function<std::shared_ptr<Larder::SecretsStorage>(const Kitbag&)> secretsStorage;
  std::function<std::shared_ptr<URLSession>()> urlSession;
  std::function<std::shared_ptr<NotificationCenter>()> notificationCenter;
  std::function<FileManager()> fileManager;
  std::function<Locale()> locale;
  std::function<std::shared_ptr<const Device>()> device;
  std::function<TimeZone()> timeZone;
  std::function<AttributionClient()> attributionClient;
  std::function<std::shared_ptr<Tempra::Scheduler>()> scheduler;
  std::function<Tempra::TimeProvider()> timeProvider;
  std::function<std::shared_ptr<Tempra::Queue>(const std::string& name)>
      queue;  ///< a new serial queue
  std::function<UUID()> randomUUID;
  std::function<std::shared_ptr<Usher::UsherManager>()> usherManager;
  std::function<std::optional<std::string>()> advertisingIdentifier;
  std::function<std::optional<std::string>()> notBackuppableIdFolder;
  std::optional<std::string>
      libraryShortVersion;  ///< the library's own version, when the platform can tell
};

}  // namespace kite
