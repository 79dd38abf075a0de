#pragma once

#include <Kite/Base/Export.h>
#include <Kite/Platform/Application.h>
#include <Kite/Platform/MainThread.h>

#include <functional>
#include <memory>

namespace kite {

/// Tells whether the application is in the background.
struct KITE_EXPORT BackgroundChecker {
  /// Called from any thread, for every tracking call; must not throw.
  std::function<bool()> isInBackground;
  /// The thread that `isInBackground` waits for, or null. A drain on it answers meanwhile.
  std::shared_ptr<MainThread> mainThread = nullptr;

  /// Asks the application, on the main thread; the caller waits for the answer.
  static BackgroundChecker uiApplication(std::shared_ptr<Application> application,
                                         std::shared_ptr<MainThread> mainThread);
  /// Always answers false.
  static BackgroundChecker noBackground();
};

}  // namespace kite
