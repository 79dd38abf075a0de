// Notes with Qt 6. KITE_ENDPOINT and KITE_KEY say where the events go; a collector that signed its
// own certificate is trusted with `qt6_notes ca.pem`.
#include <Kite/Kite.h>
#include <KiteQt6.h>

#include <QApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QTextEdit>
#include <QVBoxLayout>
#include <QWidget>
#include <cstdio>

int main(int argc, char** argv) {
  QApplication application(argc, argv);
  kite::Linux::KiteApplicationOptions options{.name = "notes", .version = "1.0", .build = "1"};
  if (argc > 1) options.caFile = argv[1];
  const auto started = kite::Qt6::start(application, std::move(options));
  if (!started) {
    std::fprintf(stderr, "notes: %s\n", started.error().c_str());
    return 1;
  }
  auto& kite = started->kite();

  QWidget window;
  window.setWindowTitle("Notes");
  QVBoxLayout layout(&window);
  QTextEdit note;
  layout.addWidget(&note);
  QPushButton save("Save");
  layout.addWidget(&save);
  QObject::connect(&save, &QPushButton::clicked, [&] {
    const int length = static_cast<int>(note.toPlainText().size());
    kite.trackUserAction("save", {{"length", length}});
    QMessageBox::information(&window, "Notes", "Saved.");
  });
  window.show();
  return QApplication::exec();
}
