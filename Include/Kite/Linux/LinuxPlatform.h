#pragma once

#include <Kite/Base/Export.h>
#include <Kite/Base/Result.h>
#include <Kite/Platform/Platform.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// The platform on Linux. Every factory may be called from any thread.
namespace kite::Linux {

/// What a host tells of itself; everything left out is read from the system. The time zone is the
/// process's: that of TZ, else the machine's.
struct PlatformOptions {
  std::string applicationName;  ///< a file name; folders are named after it
  Kitbag kitbag = {};
  std::optional<std::filesystem::path> dataFolder = {};  ///< else `$XDG_DATA_HOME/applicationName`
  std::optional<std::filesystem::path> secretsFolder =
      {};  ///< else `$XDG_DATA_HOME/kite-secrets/applicationName`
  std::optional<std::filesystem::path> caFile = {};  ///< PEM; else the system's authorities
  std::optional<Locale> locale = {};  ///< else LANGUAGE, LC_ALL, LC_MESSAGES and LANG
  AttributionClient attributionClient = AttributionClient::none();
  std::shared_ptr<NotificationCenter> notificationCenter = nullptr;  ///< else a new one
  System system = System::live();  ///< its `print` gets the parts' console lines
};

/// Where an application keeps its stores unless its options say otherwise.
struct StoreFolders {
  std::filesystem::path data;
  std::filesystem::path secrets;
};
KITE_EXPORT StoreFolders defaultStoreFolders(const std::string& applicationName);

/// The real parts: stores in record logs, libcurl, OpenSSL, threads. Nothing is opened before a
/// factory in it is called.
KITE_EXPORT Platform platform(PlatformOptions options);

KITE_EXPORT std::shared_ptr<NotificationCenter> notificationCenter();

/// An application whose state the host sets. The state changes first, then `center` is told.
class HostApplication : public Application {
 public:
  /// Any thread; the notification's handlers run on it.
  virtual void willEnterForeground() = 0;
  virtual void didEnterBackground() = 0;
  /// For a host that learns that its time runs out: calls the expiration handler of every
  /// background task that has not ended, on this thread. A handler is called once.
  virtual void expireBackgroundTasks() = 0;
};
KITE_EXPORT std::shared_ptr<HostApplication> hostApplication(
    std::shared_ptr<NotificationCenter> center,
    ApplicationState initialState = ApplicationState::active);

/// A main thread without a loop: bodies run in place.
KITE_EXPORT std::shared_ptr<MainThread> inlineMainThread();
/// The thread that calls this, which runs a loop; `post` hands a body over to the loop and returns.
/// A body that the loop drops unrun, at its end for instance, runs on the caller's thread.
KITE_EXPORT std::shared_ptr<MainThread> attachedMainThread(
    std::function<void(std::function<void()>)> post);

/// Reports as one JSON object per line, appended to `file`, or to standard error.
KITE_EXPORT std::shared_ptr<Whisker> jsonLinesWhisker(
    std::optional<std::filesystem::path> file = {});

KITE_EXPORT std::shared_ptr<Tempra::Queue> workerQueue(std::string name);
KITE_EXPORT std::shared_ptr<Tempra::Scheduler> timerThreadScheduler();
/// HTTPS only, over connections that are kept. A request resumed after the session's end, or in a
/// forked child, fails before `resume` returns.
KITE_EXPORT std::shared_ptr<URLSession> curlSession(
    std::optional<std::filesystem::path> caFile = {});

KITE_EXPORT std::shared_ptr<Larder::KVStorage> keyValueStorage(const std::filesystem::path& folder,
                                                               const System& system);
KITE_EXPORT std::shared_ptr<Larder::SecretsStorage> sealedSecretsStorage(
    const std::filesystem::path& folder, const System& system);

/// One key of a store on disk, as tools see it.
struct StoreEntry {
  enum class Kind { data, list, number, dictionary };
  std::string key;
  Kind kind;
};

/// A store on disk opened for inspection or for repair, without being its application.
class StoreInspector {
 public:
  virtual ~StoreInspector() = default;
  virtual std::vector<StoreEntry> entries() const = 0;
  virtual std::shared_ptr<Larder::Storage> storage() const = 0;
  /// The same object when it is a key-value store, else null.
  virtual std::shared_ptr<Larder::KVStorage> keyValues() const = 0;
};

enum class StoreKind { keyValues, secrets };
/// Opening for writing fails while another process owns the store, and makes a store that is
/// missing. The error is one line for a person.
KITE_EXPORT Result<std::shared_ptr<StoreInspector>, std::string> inspectStore(
    const std::filesystem::path& folder, StoreKind kind, bool forWriting);

/// What the checksums of one file of a store say.
struct CheckedFile {
  std::string name;
  std::size_t records = 0;  ///< with a sound header
  std::size_t damaged = 0;  ///< records and stretches of bytes that are not what was written
  bool isCutOff = false;    ///< the file ends within a record, as a kill leaves it
};
/// Verifies every checksum of a store, beside a live owner too. The error is one line for a person.
KITE_EXPORT Result<std::vector<CheckedFile>, std::string> checkStore(
    const std::filesystem::path& folder, StoreKind kind);

}  // namespace kite::Linux
