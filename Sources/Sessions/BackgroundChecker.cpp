#include <Kite/BackgroundChecker.h>

#include <utility>

namespace kite {

BackgroundChecker BackgroundChecker::uiApplication(std::shared_ptr<Application> application,
                                                   std::shared_ptr<MainThread> mainThread) {
  const auto isInBackground = [application = std::move(application), mainThread] {
    const auto readState = [&application] { return application->applicationState(); };
    return kite::mainThread(*mainThread, readState) == ApplicationState::background;
  };
  return {isInBackground, mainThread};
}

BackgroundChecker BackgroundChecker::noBackground() {
  return {[] { return false; }};
}

}  // namespace kite
