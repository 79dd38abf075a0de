#pragma once

#include <Kite/Base/Export.h>
#include <Kite/Base/Result.h>
#include <Kite/Drain.h>
#include <Kite/KiteManagerImpl.h>
#include <Kite/Linux/LinuxPlatform.h>
#include <Kite/Status.h>
#include <Kite/Storefront.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kite::Linux {

/// When sessions begin and end.
enum class Sessions {
  wholeRun,   ///< one, from the start to the end of the application object
  byHand,     ///< as the host says with `beginSession` and `endSession`
  byWindows,  ///< while the application is visible, as the host says with `setVisible`
};

/// What the events are to the collection service: of users, or of a build that is being tried.
enum class Stage { production, staging };

/// All that a host may say at its start. Everything but the name, the key and the endpoint has a
/// default; key, endpoint and CA file may come from the environment, which keeps secrets out of the
/// code.
struct KiteApplicationOptions {
  std::string name;      ///< a file name: of the folders, and of the application at the service
  std::string key = {};  ///< signs every request; else `$KITE_KEY`
  std::string endpoint = {};                        ///< an `https` URL; else `$KITE_ENDPOINT`
  std::vector<std::string> fallbackEndpoints = {};  ///< tried in turn when `endpoint` fails
  Stage stage = Stage::production;
  std::string version = {};  ///< of the application
  std::string build = {};    ///< of its build
  Sessions sessions = Sessions::wholeRun;

  std::optional<std::filesystem::path> dataFolder = {};  ///< absolute; else under XDG's data home
  /// Absolute; else that of `kite-secrets` under XDG's data home.
  std::optional<std::filesystem::path> secretsFolder = {};
  /// PEM; else `$KITE_CA_FILE`, else the system's authorities.
  std::optional<std::filesystem::path> caFile = {};

  /// With `Sessions::byWindows`: the thread of the host's main loop, which is asked whether the
  /// application is visible. Else any thread may answer.
  std::shared_ptr<MainThread> mainThread = nullptr;
  bool installedBeforeKite = false;  ///< the application existed before it linked the library
  std::optional<Storefront> storefront = {};
  std::optional<Locale> locale = {};  ///< else LANGUAGE, LC_ALL, LC_MESSAGES and LANG

  /// How long the application object's destruction, an exit and a signal may take.
  DrainLimits drainLimits = {};
  bool drainAtExit = false;     ///< also when `std::exit` or `std::quick_exit` is called
  bool drainOnSignals = false;  ///< also at SIGTERM and SIGINT, which then end the process as usual
  /// Of the first of these drains; on the thread that ends the application. Must not throw.
  std::function<void(const DrainReport&)> onDrained = {};
  std::function<void(const UploadReport&)> onUpload = {};  ///< a thread of the library's

  /// Gets lines for people: when uploads begin to fail, when they work again, and what is wrong
  /// with the store. Any thread; else standard error.
  std::function<void(std::string_view line)> print = {};
  bool debug = false;  ///< all lines of the library, too; else when `$KITE_DEBUG` is 1
};

/// A host's library, started. Its destruction ends the session and drains it with the limits of
/// its options.
///
/// Movable; the moved-from object may only be destroyed. Every operation may be called from any
/// thread.
class KITE_EXPORT KiteApplication {
 public:
  /// Starts the library, or gives one line that says which option is wrong and why; then nothing
  /// was started. Throws nothing but `std::bad_alloc`.
  static Result<KiteApplication, std::string> start(KiteApplicationOptions options);

  KiteApplication(KiteApplication&&) noexcept;
  KiteApplication& operator=(KiteApplication&&) noexcept;
  ~KiteApplication();

  /// The facade. It lives as long as the application object.
  KiteManagerImpl& kite() const;

  /// With `Sessions::byHand`; ignored otherwise. A session that runs is ended by the next.
  void beginSession() const;
  void endSession() const;

  /// With `Sessions::byWindows`: the user sees a window of the application, or none any more.
  /// A value that is no news is ignored, and so is all with other sessions.
  void setVisible(bool isVisible) const;

  /// What the destruction does, for a host that ends before: ends the session and drains with the
  /// limits of the options. Whoever ends it again, the destruction too, only puts what was recorded
  /// since on disk.
  void end() const;

  /// See `kite::drain`. The session goes on.
  DrainReport drain(DrainLimits limits = {}) const;
  void drain(DrainLimits limits, std::function<void(const DrainReport&)> whenDone) const;
  /// See `kite::status`.
  Status status() const;

 private:
  struct State;
  explicit KiteApplication(std::shared_ptr<State> state);

  std::shared_ptr<State> _state;
};

}  // namespace kite::Linux
