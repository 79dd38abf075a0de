// Notes with Qt 6. KITE_ENDPOINT and KITE_KEY say where the events go.
#include <Kite/Kite.h>
#include <KiteQt6.h>

#include <QApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QTextEdit>
#include <QVBoxLayout>
#include <QWidget>
#include <iostream>

int main(int argc, char** argv) {
  QApplication application(argc, argv);
  const auto app = kite::Qt6::start(application, {.name = "notes", .version = "1.0"});
  if (!app) return std::cerr << app.error() << '\n', 1;

  QWidget window;
  window.setWindowTitle("Notes");
  QVBoxLayout layout(&window);
  QTextEdit note;
  layout.addWidget(&note);
  QPushButton save("Save");
  layout.addWidget(&save);
  QObject::connect(&save, &QPushButton::clicked, [&] {
    const int length = static_cast<int>(note.toPlainText().size());
    app->kite().trackUserAction("save", {{"length", length}});
    QMessageBox::information(&window, "Notes", "Saved.");
  });
  window.show();
  return QApplication::exec();
}
