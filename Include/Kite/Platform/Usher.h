#pragma once

#include <Kite/Platform/Device.h>
#include <Kite/Platform/FileManager.h>
#include <Kite/Platform/Kitbag.h>
#include <Kite/Platform/Larder.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

/// Identity: who the user is, as far as a machine can tell.
namespace kite::Usher {

/// How an identifier came about, for this run.
enum class CreationType { notApplicable, justGenerated, readFromFile };

struct Id {
  std::string value;
  CreationType creationType = CreationType::notApplicable;

  friend bool operator==(const Id&, const Id&) = default;
};

/// Identifiers by name.
using Ids = std::map<std::string, Id, std::less<>>;

using CustomIdentifiers =
    std::map<std::string, std::function<std::optional<std::string>()>, std::less<>>;

struct UsherDependencies {
  Kitbag kitbag;
  std::shared_ptr<Larder::KVStorage> kvstorage;
  std::shared_ptr<Larder::SecretsStorage> secretsStorage;
  std::function<std::optional<std::string>()> idfaProvider;
  std::shared_ptr<const Device> identifierForVendorProvider;
  FileManager fileManager;
  CustomIdentifiers customIdentifiers;
  /// A folder that backups leave out; an identifier kept there does not travel to another machine.
  std::function<std::optional<std::string>()> notBackuppableIdFolderProvider;
};

class UsherManager {
 public:
  virtual ~UsherManager() = default;

  virtual void start(UsherDependencies dependencies) = 0;

  /// Every identifier that is known now. The same object for as long as none changes. Any thread;
  /// does no I/O.
  virtual std::shared_ptr<const Ids> ids() const = 0;
  virtual Id userDefaultsId() const = 0;
  virtual Id keychainId() const = 0;
};

}  // namespace kite::Usher
