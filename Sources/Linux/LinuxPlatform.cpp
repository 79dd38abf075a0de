#include <Kite/Linux/LinuxPlatform.h>

#include "Linux/Machine/Machine.h"
#include "Linux/Machine/Usher.h"

#include <memory>
#include <mutex>
#include <utility>

namespace kite::Linux {

namespace {

/// Gives the same object for as long as somebody holds it, else makes a new one: a store has one
/// owner.
template <class T>
class Shareable {
 public:
  template <class Make>
  std::shared_ptr<T> get(Make make) {
    const std::scoped_lock guard(_mutex);
    auto object = _object.lock();
    if (!object) _object = object = make();
    return object;
  }

 private:
  std::mutex _mutex;
  std::weak_ptr<T> _object;
};

struct Stores {
  Shareable<Larder::KVStorage> keyValues;
  Shareable<Larder::SecretsStorage> secrets;
};

}  // namespace

Platform platform(PlatformOptions given) {
  const auto options = std::make_shared<const PlatformOptions>(std::move(given));
  const auto environment = processEnvironment();
  const auto folders = std::make_shared<const Folders>(foldersFor(*options, environment));
  const auto stores = std::make_shared<Stores>();
  return {
      .kitbag = [options] { return options->kitbag; },
      .kvStorage =
          [options, folders, stores] {
            return stores->keyValues.get(
                [&] { return keyValueStorage(folders->data, options->system); });
          },
      .secretsStorage =
          [options, folders, stores](const Kitbag&) {
            return stores->secrets.get(
                [&] { return sealedSecretsStorage(folders->secrets, options->system); });
          },
      .urlSession = [options] { return curlSession(options->caFile); },
      .notificationCenter =
          [options] {
            return options->notificationCenter ? options->notificationCenter : notificationCenter();
          },
      .fileManager = [folders] { return fileManager(folders->data); },
      .locale =
          [options, environment] {
            return options->locale ? *options->locale : localeFrom(environment);
          },
      .device = [] { return device(); },
      .timeZone = timeZone,
      .attributionClient = [options] { return options->attributionClient; },
      .scheduler = [] { return timerThreadScheduler(); },
      .timeProvider = [] { return Tempra::TimeProvider{System::live().now}; },
      .queue = [](const std::string& name) { return workerQueue(name); },
      .randomUUID = options->system.randomUUID,
      .usherManager = [options]() -> std::shared_ptr<Usher::UsherManager> {
        return std::make_shared<Usher::Manager>(options->system);
      },
      .advertisingIdentifier = [] { return std::optional<std::string>(); },
      .notBackuppableIdFolder = [folders] { return folders->notBackedUp; },
      .libraryShortVersion = KITE_VERSION,
  };
}

}  // namespace kite::Linux
