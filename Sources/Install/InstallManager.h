#pragma once

#include <Kite/Base/Date.h>
#include <Kite/Platform/FileManager.h>
#include <Kite/Platform/Larder.h>
#include <Kite/Platform/Usher.h>

#include "JSON/JSONCoding.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace kite {

class EventManager;

struct InstallManagerDependencies {
  std::shared_ptr<Larder::KVStorage> kvStorage;
  std::shared_ptr<Larder::SecretsStorage> secretsStorage;
  std::shared_ptr<Usher::UsherManager> idProvider;
  std::string currentAppVersion;
  std::string currentBundleVersion;
  std::shared_ptr<EventManager> eventManager;
  bool installedBeforeKite;
  FileManager fileManager;
  std::function<Date()> now;
};

/// What is remembered of the application between launches.
struct StoredInformations {
  std::optional<double> firstInstallTimestamp;  ///< seconds since 1970
  std::optional<bool> installedBeforeKite;
  std::optional<std::string> appVersion;
  std::optional<std::string> bundleVersion;

  friend bool operator==(const StoredInformations&, const StoredInformations&) = default;
};

/// Absent fields are left out.
template <>
struct JSONCoding<StoredInformations> {
  static JSONValue encode(const StoredInformations& informations);
  static std::optional<StoredInformations> decode(const JSONValue& json);
};

/// Tells at every start whether this launch is a first install, a reinstallation, an update or none
/// of these.
class InstallManager {
 public:
  virtual ~InstallManager() = default;
  virtual void start(InstallManagerDependencies dependencies) = 0;

  /// The record in the secrets store and in the key-value store; all fields absent when there is
  /// none.
  virtual StoredInformations ssInfo() = 0;
  virtual StoredInformations kvInfo() = 0;
};

}  // namespace kite
