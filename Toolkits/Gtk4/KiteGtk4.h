#pragma once

#include <Kite/Linux/KiteApplication.h>
#include <gtk/gtk.h>

#include <memory>
#include <string>

/// Kite in an application of GTK 4, in C or with any of its bindings.
namespace kite::Gtk4 {

/// A started library whose sessions follow the windows of a GTK application. Made and destroyed on
/// the thread of the application's loop.
///
/// A session begins when the first window of the application's is shown and ends when the last one
/// is hidden, closed or minimised, as the loop finds them when it has nothing else to do: from one
/// window to the next at a stroke is one session. Dialogs, modal windows, windows that are
/// transient for another one, and windows that were not added to the application (a splash screen)
/// count for nothing.
///
/// When the application shuts down, the session ends and is drained with the limits of the options;
/// the destruction keeps what was recorded after that for the next run.
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
  friend KITE_EXPORT Result<Adapter, std::string> start(GtkApplication* application,
                                                        Linux::KiteApplicationOptions options);

  std::unique_ptr<State> _state;
};

/// Call it in the handler of "startup", which a second process of a unique application does not
/// reach. `sessions` and `mainThread` of the options are the adapter's to set. The error is one
/// line that says which option is wrong; then nothing was started.
KITE_EXPORT Result<Adapter, std::string> start(GtkApplication* application,
                                               Linux::KiteApplicationOptions options);

}  // namespace kite::Gtk4
