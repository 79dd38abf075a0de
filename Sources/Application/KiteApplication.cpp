#include <Kite/Kite.h>
#include <Kite/Linux/KiteApplication.h>

#include "Application/CheckedOptions.h"
#include "Application/UploadLines.h"
#include "Application/WaysOut.h"
#include "Base/CatchingBadAlloc.h"
#include "Base/ForkGuard.h"

#include <mutex>
#include <optional>
#include <utility>

namespace kite::Linux {
namespace {

using Print = std::function<void(std::string_view line)>;

/// What the library would report of itself is of no use to a host's user.
class SilentWhisker final : public Whisker {
 public:
  std::shared_ptr<Whisker> scoped(std::vector<std::string>) override {
    return std::make_shared<SilentWhisker>();
  }
  void report(const DebugEvent&, const SourceLocation&) override {}
};

System systemThatPrints(Print print) {
  auto system = System::live();
  if (print) system.print = std::move(print);
  return system;
}

/// Of the facade's lines only a developer wants to know.
System facadeSystem(const KiteApplicationOptions& options) {
  return systemThatPrints(options.debug ? options.print : [](std::string_view) {});
}

Kitbag kitbag(const KiteApplicationOptions& options) {
  const auto unlessEmpty = [](const std::string& text) {
    return text.empty() ? std::nullopt : std::optional(text);
  };
  const bool isProduction = options.stage == Stage::production;
  return {.appVersion = unlessEmpty(options.version),
          .bundleVersion = unlessEmpty(options.build),
          .distributionChannel =
              isProduction ? DistributionChannel::appStore : DistributionChannel::debug};
}

}  // namespace

struct KiteApplication::State : LastWork, std::enable_shared_from_this<KiteApplication::State> {
  explicit State(CheckedOptions checked)
      : options(std::move(checked.options)),
        endpoint(std::move(checked.endpoint)),
        fallbackEndpoints(std::move(checked.fallbackEndpoints)),
        kite(facadeSystem(options)),
        application(hostApplication(
            center, followsWindows() ? ApplicationState::background : ApplicationState::active)),
        uploadLines(systemThatPrints(options.print).print) {}

  bool followsWindows() const { return options.sessions == Sessions::byWindows; }

  Platform platform() const {
    return Linux::platform({.applicationName = options.name,
                            .kitbag = kitbag(options),
                            .dataFolder = options.dataFolder,
                            .secretsFolder = options.secretsFolder,
                            .caFile = options.caFile,
                            .locale = options.locale,
                            .notificationCenter = center,
                            .system = systemThatPrints(options.print)});
  }

  KiteDependencies dependencies() const {
    const auto mainThread =
        followsWindows() && options.mainThread ? options.mainThread : inlineMainThread();
    KiteDependencies bundle(
        platform(),
        FromCustomIDs{
            .installedBeforeKite = options.installedBeforeKite,
            .customIDs = {},
            .endpoints = {.production = endpoint, .staging = endpoint},
            .sessionListener = sessionsByHand.witness,
            .backgroundChecker = BackgroundChecker::uiApplication(application, mainThread),
            .backgroundTaskScheduler = BackgroundTaskScheduler::uiApplication(application),
            .lumoID = options.name,
            .wicketKey = options.key,
            .whisker = options.debug ? jsonLinesWhisker() : std::make_shared<SilentWhisker>(),
            .storefrontProvider = [storefront = options.storefront] { return storefront; },
            // Nothing suspends a program on Linux, so that there is no reason to stop.
            .syncOnSessionEnd = true});
    bundle.secondaryURLs = fallbackEndpoints;
    bundle.savesLedger = true;
    return bundle;
  }

  void start() {
    onUpload(kite, [weakSelf = weak_from_this()](const UploadReport& upload) {
      if (const auto self = weakSelf.lock()) self->uploadEnded(upload);
    });
    kite.start(dependencies());
    if (options.sessions == Sessions::wholeRun) beginSession();
    if (options.drainAtExit) doAtExit(weak_from_this());
    if (options.drainOnSignals) doAtSignals(weak_from_this());
  }

  void uploadEnded(const UploadReport& upload) {
    uploadLines.ended(upload);
    if (options.onUpload) options.onUpload(upload);
  }

  void beginSession() {
    if (!home.isOriginalProcess()) return;
    const std::scoped_lock guard(sessionMutex);
    hasSession = true;
    sessionsByHand.triggerSessionStart();
  }
  void endSession() {
    if (!home.isOriginalProcess()) return;
    const std::scoped_lock guard(sessionMutex);
    if (std::exchange(hasSession, false)) sessionsByHand.triggerSessionEnd();
  }
  void setVisible(bool isVisible) {
    if (!followsWindows() || !home.isOriginalProcess()) return;
    const std::scoped_lock guard(sessionMutex);
    if (std::exchange(hasSession, isVisible) == isVisible) return;
    isVisible ? application->willEnterForeground() : application->didEnterBackground();
    isVisible ? sessionsByHand.triggerSessionStart() : sessionsByHand.triggerSessionEnd();
  }

  // The host is told without the lock: it may end the process there, which comes back to here.
  void doLastWork() override {
    if (!home.isOriginalProcess()) return;
    std::optional<DrainReport> report;
    catchingBadAlloc([&] { report = lastDrain(); });
    if (!report) return;
    if (report->inMemory > 0) catchingBadAlloc([&] { uploadLines.lost(report->inMemory); });
    if (options.onDrained) options.onDrained(*report);
  }

  /// Nothing when it is not the first. What comes after that one is kept for the next run; the time
  /// to deliver is taken once.
  std::optional<DrainReport> lastDrain() {
    const std::scoped_lock guard(lastWorkMutex);
    if (std::exchange(isLastWorkDone, true)) {
      kite::drain(kite, {.persistWithin = options.drainLimits.persistWithin});
      return std::nullopt;
    }
    followsWindows() ? setVisible(false) : endSession();
    return kite::drain(kite, options.drainLimits);
  }

  const KiteApplicationOptions options;
  const URL endpoint;
  const std::vector<URL> fallbackEndpoints;
  const ForkGuard home{System::live().forkCount};
  KiteManagerImpl kite;
  const std::shared_ptr<NotificationCenter> center = notificationCenter();
  const std::shared_ptr<HostApplication> application;
  const ManualSessionListener sessionsByHand = SessionListener::manual();
  UploadLines uploadLines;

  std::mutex sessionMutex;
  bool hasSession = false;
  std::mutex lastWorkMutex;
  bool isLastWorkDone = false;
};

Result<KiteApplication, std::string> KiteApplication::start(KiteApplicationOptions options) {
  auto checked = check(std::move(options), processEnvironment());
  if (!checked) return Failure{"KiteApplicationOptions." + checked.error()};
  auto state = std::make_shared<State>(*std::move(checked));
  state->start();
  return KiteApplication(std::move(state));
}

KiteApplication::KiteApplication(std::shared_ptr<State> state) : _state(std::move(state)) {}
KiteApplication::KiteApplication(KiteApplication&&) noexcept = default;
KiteApplication& KiteApplication::operator=(KiteApplication&& other) noexcept {
  KiteApplication taken(std::move(other));
  std::swap(_state, taken._state);
  return *this;
}
KiteApplication::~KiteApplication() {
  if (_state) _state->doLastWork();
}

KiteManagerImpl& KiteApplication::kite() const { return _state->kite; }

void KiteApplication::beginSession() const {
  if (_state->options.sessions == Sessions::byHand) _state->beginSession();
}
void KiteApplication::endSession() const {
  if (_state->options.sessions == Sessions::byHand) _state->endSession();
}
void KiteApplication::setVisible(bool isVisible) const { _state->setVisible(isVisible); }

void KiteApplication::end() const { _state->doLastWork(); }

DrainReport KiteApplication::drain(DrainLimits limits) const {
  return kite::drain(_state->kite, limits);
}
void KiteApplication::drain(DrainLimits limits,
                            std::function<void(const DrainReport&)> whenDone) const {
  kite::drain(_state->kite, limits, std::move(whenDone));
}
Status KiteApplication::status() const { return kite::status(_state->kite); }

}  // namespace kite::Linux
