#include "Qt6/KiteQt6.h"

#include <Kite/Linux/LinuxPlatform.h>

#include <QEvent>
#include <QGuiApplication>
#include <QTimer>
#include <QWindow>
#include <algorithm>
#include <functional>
#include <optional>
#include <utility>

#include "Common/LoopBodies.h"

namespace kite::Qt6 {
namespace {

bool isShown(const QWindow& window) {
  return window.isVisible() && !window.windowStates().testFlag(Qt::WindowMinimized);
}

// Trays and drag images are plain windows, too, but such that the window manager does not know.
bool isOneOfTheApplications(const QWindow& window) {
  return window.type() == Qt::Window && window.parent() == nullptr &&
         window.transientParent() == nullptr && window.modality() == Qt::NonModal &&
         !window.flags().testFlag(Qt::BypassWindowManagerHint);
}

bool isAnyShown() {
  const auto windows = QGuiApplication::topLevelWindows();
  return std::any_of(windows.begin(), windows.end(), [](const QWindow* window) {
    return isShown(*window) && isOneOfTheApplications(*window);
  });
}

}  // namespace

/// Sees all windows, as an event filter of the application.
struct Adapter::State final : QObject {
  State() {
    endOfTurn.setSingleShot(true);
    connect(&endOfTurn, &QTimer::timeout, this, [this] { application->setVisible(isAnyShown()); });
  }
  ~State() override { bodies->close(); }

  void follow(QGuiApplication& qtApplication) {
    qtApplication.installEventFilter(this);
    connect(&qtApplication, &QCoreApplication::aboutToQuit, this, &State::quit);
    for (QWindow* const window : QGuiApplication::topLevelWindows()) watch(*window);
  }

  // No event tells that a window is minimised when the program itself did it.
  void watch(const QWindow& window) {
    connect(&window, &QWindow::visibilityChanged, this, &State::lookSoon, Qt::UniqueConnection);
    lookSoon();
  }
  void lookSoon() {
    if (!endOfTurn.isActive()) endOfTurn.start(0);
  }

  void quit() {
    endOfTurn.stop();
    // While this thread waits for the drain, nobody may wait for this thread.
    bodies->close();
    application->end();
  }

  bool eventFilter(QObject* object, QEvent* event) override {
    if (event->type() == QEvent::Show && object->isWindowType())
      watch(*static_cast<QWindow*>(object));
    return false;
  }

  void runBodiesSoon() {
    QMetaObject::invokeMethod(
        this, [this] { bodies->run(); }, Qt::QueuedConnection);
  }

  QTimer endOfTurn;  ///< fires after all that the turn has posted
  /// The library's threads may hold it longer than this lives.
  const std::shared_ptr<Toolkits::LoopBodies> bodies =
      std::make_shared<Toolkits::LoopBodies>([this] { runBodiesSoon(); });
  std::optional<Linux::KiteApplication> application;
};

Adapter::Adapter(std::unique_ptr<State> state) : _state(std::move(state)) {}
Adapter::Adapter(Adapter&&) noexcept = default;
Adapter& Adapter::operator=(Adapter&&) noexcept = default;
Adapter::~Adapter() = default;

KiteManagerImpl& Adapter::kite() const { return _state->application->kite(); }
Linux::KiteApplication& Adapter::application() const { return *_state->application; }

Result<Adapter, std::string> start(QGuiApplication& application,
                                   Linux::KiteApplicationOptions options) {
  auto state = std::make_unique<Adapter::State>();
  options.sessions = Linux::Sessions::byWindows;
  options.mainThread = Linux::attachedMainThread(
      [bodies = state->bodies](std::function<void()> body) { bodies->post(std::move(body)); });
  auto started = Linux::KiteApplication::start(std::move(options));
  if (!started) return Failure{started.error()};
  state->application = *std::move(started);
  state->follow(application);
  return Adapter(std::move(state));
}

}  // namespace kite::Qt6
