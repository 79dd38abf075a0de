// A GTK application that does with its windows what standard input says.
#include <KiteGtk4.h>
#include <glib-unix.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <optional>

#include "Commands.h"

namespace {

struct Program {
  GtkApplication* application;
  std::optional<kite::Gtk4::Adapter> kite = {};
  kite::test::Commands commands = {};
  kite::test::BusyThread busy = {};
  GtkWindow* first = nullptr;
  GtkWindow* second = nullptr;
};

// Once the loop has done what the command left to it.
void answerLater() {
  const auto answer = [](gpointer) -> gboolean {
    kite::test::answer();
    return G_SOURCE_REMOVE;
  };
  g_idle_add(answer, nullptr);
}

GtkWindow* newWindow(Program& program) {
  return GTK_WINDOW(gtk_application_window_new(program.application));
}

void hide(GtkWindow* window) { gtk_widget_set_visible(GTK_WIDGET(window), FALSE); }

void showDialog(Program& program) {
  auto* const dialog = GTK_WINDOW(gtk_dialog_new());
  gtk_window_set_application(dialog, program.application);
  gtk_window_present(dialog);
}

void showOthers(Program& program) {
  auto* const belonging = newWindow(program);
  gtk_window_set_transient_for(belonging, program.first);
  gtk_window_present(belonging);
  auto* const modal = newWindow(program);
  gtk_window_set_modal(modal, TRUE);
  gtk_window_present(modal);
  auto* const about = GTK_WINDOW(gtk_about_dialog_new());
  gtk_window_set_application(about, program.application);
  gtk_window_present(about);
}

void addCommands(Program& program) {
  const auto on = [&program](const std::string& line, std::function<void()> action) {
    program.commands.on(line, [action = std::move(action)] {
      action();
      answerLater();
    });
  };
  on("show", [&] { gtk_window_present(program.first); });
  on("hide", [&] { hide(program.first); });
  on("close", [&] { gtk_window_close(program.first); });
  on("minimise", [&] { gtk_window_minimize(program.first); });
  on("restore", [&] { gtk_window_present(program.first); });
  on("swap", [&] {
    gtk_window_destroy(program.first);
    gtk_window_present(program.second);
  });
  on("swap later", [&] {
    hide(program.second);
    const auto show = [](gpointer of) -> gboolean {
      gtk_window_present(newWindow(*static_cast<Program*>(of)));
      return G_SOURCE_REMOVE;
    };
    g_idle_add_full(G_PRIORITY_DEFAULT, show, &program, nullptr);
  });
  on("glimpse", [&] {
    gtk_window_present(program.first);
    hide(program.first);
  });
  on("dialog", [&] { showDialog(program); });
  on("others", [&] { showOthers(program); });
  on("splash", [] { gtk_window_present(GTK_WINDOW(gtk_window_new())); });
  on("busy", [&] { program.busy.start(program.kite->kite()); });
  program.commands.on("count", [&] { kite::test::answerTracked(program.kite->application()); });
  program.commands.on("quit", [&] { g_application_quit(G_APPLICATION(program.application)); });
}

void startup(GtkApplication* application, Program* program) {
  auto started = kite::Gtk4::start(application, kite::test::options());
  if (!started) std::exit(1);
  program->kite = *std::move(started);
}

void activate(GtkApplication* application, Program* program) {
  g_application_hold(G_APPLICATION(application));
  program->first = newWindow(*program);
  program->second = newWindow(*program);
  gtk_window_set_title(program->first, "first");
  addCommands(*program);
  const auto read = [](gint, GIOCondition, gpointer of) -> gboolean {
    static_cast<Program*>(of)->commands.readOne();
    return G_SOURCE_CONTINUE;
  };
  g_unix_fd_add(STDIN_FILENO, GIOCondition(G_IO_IN | G_IO_HUP), read, program);
  kite::test::answer();
}

}  // namespace

int main(int argc, char** argv) {
  Program program{.application =
                      gtk_application_new("example.kite.windows", G_APPLICATION_NON_UNIQUE)};
  g_signal_connect(program.application, "startup", G_CALLBACK(startup), &program);
  g_signal_connect(program.application, "activate", G_CALLBACK(activate), &program);
  const int status = g_application_run(G_APPLICATION(program.application), argc, argv);
  program.busy.end();
  std::_Exit(status);  // nothing is destroyed: the shutdown alone has drained the library
}
