// Notes with GTK 4. KITE_ENDPOINT and KITE_KEY say where the events go.
#include <Kite/Kite.h>
#include <KiteGtk4.h>

#include <optional>

struct Notes {
  std::optional<kite::Gtk4::Adapter> app = {};
  GtkWindow* window = nullptr;
  GtkTextBuffer* note = nullptr;
};

// Only the first process of a unique application comes here.
void startup(GtkApplication* application, Notes* notes) {
  auto app = kite::Gtk4::start(application, {.name = "notes", .version = "1.0"});
  if (!app) g_error("%s", app.error().c_str());
  notes->app = *std::move(app);
}

void save(GtkButton*, Notes* notes) {
  const int length = gtk_text_buffer_get_char_count(notes->note);
  notes->app->kite().trackUserAction("save", {{"length", length}});
  GtkWidget* const saved = gtk_message_dialog_new(notes->window, GTK_DIALOG_MODAL, GTK_MESSAGE_INFO,
                                                  GTK_BUTTONS_CLOSE, "Saved.");
  g_signal_connect(saved, "response", G_CALLBACK(gtk_window_destroy), nullptr);
  gtk_window_present(GTK_WINDOW(saved));
}

void activate(GtkApplication* application, Notes* notes) {
  notes->window = GTK_WINDOW(gtk_application_window_new(application));
  gtk_window_set_title(notes->window, "Notes");
  GtkWidget* const box = gtk_box_new(GTK_ORIENTATION_VERTICAL, 6);
  GtkWidget* const text = gtk_text_view_new();
  notes->note = gtk_text_view_get_buffer(GTK_TEXT_VIEW(text));
  gtk_widget_set_vexpand(text, TRUE);
  gtk_box_append(GTK_BOX(box), text);
  GtkWidget* const button = gtk_button_new_with_label("Save");
  g_signal_connect(button, "clicked", G_CALLBACK(save), notes);
  gtk_box_append(GTK_BOX(box), button);
  gtk_window_set_child(notes->window, box);
  gtk_window_present(notes->window);
}

int main(int argc, char** argv) {
  Notes notes;
  GtkApplication* const application =
      gtk_application_new("org.example.Notes", G_APPLICATION_DEFAULT_FLAGS);
  g_signal_connect(application, "startup", G_CALLBACK(startup), &notes);
  g_signal_connect(application, "activate", G_CALLBACK(activate), &notes);
  const int status = g_application_run(G_APPLICATION(application), argc, argv);
  g_object_unref(application);
  return status;
}
