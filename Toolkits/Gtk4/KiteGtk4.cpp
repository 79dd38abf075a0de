#include "Gtk4/KiteGtk4.h"

#include <Kite/Linux/LinuxPlatform.h>

#include <functional>
#include <optional>
#include <utility>

#include "Common/LoopBodies.h"

namespace kite::Gtk4 {
namespace {

bool isMinimised(GtkWindow* window) {
  GdkSurface* const surface = gtk_native_get_surface(GTK_NATIVE(window));
  return surface != nullptr &&
         (gdk_toplevel_get_state(GDK_TOPLEVEL(surface)) & GDK_TOPLEVEL_STATE_MINIMIZED) != 0;
}

bool isDialog(GtkWindow* window) {
  return GTK_IS_DIALOG(window) || GTK_IS_ABOUT_DIALOG(window) || gtk_window_get_modal(window) ||
         gtk_window_get_transient_for(window) != nullptr;
}

bool isAnyShown(GtkApplication* application) {
  for (GList* at = gtk_application_get_windows(application); at != nullptr; at = at->next) {
    auto* const window = GTK_WINDOW(at->data);
    if (gtk_widget_get_visible(GTK_WIDGET(window)) && !isMinimised(window) && !isDialog(window))
      return true;
  }
  return false;
}

using Toolkits::LoopBodies;

void runBodiesSoon(const std::shared_ptr<LoopBodies>& bodies) {
  using Held = std::shared_ptr<LoopBodies>;
  const auto run = [](gpointer held) -> gboolean {
    (*static_cast<Held*>(held))->run();
    return G_SOURCE_REMOVE;
  };
  const auto release = [](gpointer held) { delete static_cast<Held*>(held); };
  g_idle_add_full(G_PRIORITY_DEFAULT, run, new Held(bodies), release);
}

}  // namespace

struct Adapter::State {
  explicit State(GtkApplication* of) : gtkApplication(GTK_APPLICATION(g_object_ref(of))) {
    g_object_set_data(anchor, "kite", this);
  }
  ~State() {
    bodies->close();
    g_object_unref(anchor);
    if (idle != 0) g_source_remove(idle);
    g_object_unref(gtkApplication);
  }
  State(const State&) = delete;
  State& operator=(const State&) = delete;

  void follow() {
    connect(gtkApplication, "window-added", G_CALLBACK(windowAdded));
    connect(gtkApplication, "window-removed", G_CALLBACK(shownMayChange));
    connect(gtkApplication, "shutdown", G_CALLBACK(shutdown));
    for (GList* at = gtk_application_get_windows(gtkApplication); at != nullptr; at = at->next)
      windowAdded(anchor, GTK_WIDGET(at->data));
  }

  // Handlers get the anchor first: its end disconnects them.
  void connect(gpointer instance, const char* signal, GCallback handler) {
    g_signal_connect_object(instance, signal, handler, anchor, G_CONNECT_SWAPPED);
  }
  static State& of(GObject* anchor) {
    return *static_cast<State*>(g_object_get_data(anchor, "kite"));
  }

  static void windowAdded(GObject* anchor, GtkWidget* window) {
    of(anchor).connect(window, "notify::visible", G_CALLBACK(shownMayChange));
    of(anchor).connect(window, "realize", G_CALLBACK(windowRealized));
    if (gtk_widget_get_realized(window)) windowRealized(anchor, window);
    shownMayChange(anchor);
  }
  static void windowRealized(GObject* anchor, GtkWidget* window) {
    GdkSurface* const surface = gtk_native_get_surface(GTK_NATIVE(window));
    of(anchor).connect(surface, "notify::state", G_CALLBACK(shownMayChange));
  }
  static void shownMayChange(GObject* anchor) {
    auto& state = of(anchor);
    if (state.idle == 0) state.idle = g_idle_add(whenIdle, &state);
  }
  static gboolean whenIdle(gpointer self) {
    auto& state = *static_cast<State*>(self);
    state.idle = 0;
    state.application->setVisible(isAnyShown(state.gtkApplication));
    return G_SOURCE_REMOVE;
  }
  static void shutdown(GObject* anchor) {
    auto& state = of(anchor);
    // While this thread waits for the drain, nobody may wait for this thread.
    state.bodies->close();
    state.application->end();
  }

  GtkApplication* const gtkApplication;
  GObject* const anchor = G_OBJECT(g_object_new(G_TYPE_OBJECT, nullptr));
  guint idle = 0;  ///< the source that looks at the windows when the loop has nothing else to do
  /// The library's threads may hold it longer than this lives.
  const std::shared_ptr<LoopBodies> bodies =
      std::make_shared<LoopBodies>([this] { runBodiesSoon(bodies); });
  std::optional<Linux::KiteApplication> application;
};

Adapter::Adapter(std::unique_ptr<State> state) : _state(std::move(state)) {}
Adapter::Adapter(Adapter&&) noexcept = default;
Adapter& Adapter::operator=(Adapter&&) noexcept = default;
Adapter::~Adapter() = default;

KiteManagerImpl& Adapter::kite() const { return _state->application->kite(); }
Linux::KiteApplication& Adapter::application() const { return *_state->application; }

Result<Adapter, std::string> start(GtkApplication* application,
                                   Linux::KiteApplicationOptions options) {
  auto state = std::make_unique<Adapter::State>(application);
  options.sessions = Linux::Sessions::byWindows;
  options.mainThread = Linux::attachedMainThread(
      [bodies = state->bodies](std::function<void()> body) { bodies->post(std::move(body)); });
  auto started = Linux::KiteApplication::start(std::move(options));
  if (!started) return Failure{started.error()};
  state->application = *std::move(started);
  state->follow();
  return Adapter(std::move(state));
}

}  // namespace kite::Gtk4
