#pragma once

#include <Kite/Linux/KiteApplication.h>

#include <memory>
#include <string>

class QGuiApplication;

/// Kite in an application of Qt 6, with widgets or without.
namespace kite::Qt6 {

/// A started library whose sessions follow the windows of a Qt application. Made and destroyed on
/// the thread of the application's loop.
///
/// A session begins when the first window is shown and ends when the last one is hidden, closed or
/// minimised, as the turn of the loop leaves it: from one window to the next in the same turn is
/// one session. Dialogs, tool windows, pop-ups, splash screens, windows that belong to another one
/// and those that the window manager does not know count for nothing.
///
/// When the application is about to quit, the session ends and is drained with the limits of the
/// options; the destruction keeps what was recorded after that for the next run.
class KITE_EXPORT Adapter {
 public:
  Adapter(Adapter&&) noexcept;
  Adapter& operator=(Adapter&&) noexcept;
  ~Adapter();

  /// The facade. It lives as long as this.
  KiteManagerImpl& kite() const;
  /// To drain, or to ask for the status.
  Linux::KiteApplication& application() const;

 private:
  struct State;
  explicit Adapter(std::unique_ptr<State> state);
  friend KITE_EXPORT Result<Adapter, std::string> start(QGuiApplication& application,
                                                        Linux::KiteApplicationOptions options);

  std::unique_ptr<State> _state;
};

/// Call it once the application object is made, best before the first window. `sessions` and
/// `mainThread` of the options are the adapter's to set. The error is one line that says which
/// option is wrong; then nothing was started.
KITE_EXPORT Result<Adapter, std::string> start(QGuiApplication& application,
                                               Linux::KiteApplicationOptions options);

}  // namespace kite::Qt6
