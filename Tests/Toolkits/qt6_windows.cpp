// A Qt application that does with its windows what standard input says.
#include <KiteQt6.h>
#include <unistd.h>

#include <QApplication>
#include <QDialog>
#include <QSocketNotifier>
#include <QSplashScreen>
#include <QTimer>
#include <QWidget>
#include <cstdlib>
#include <functional>

#include "Commands.h"

int main(int argc, char** argv) {
  QApplication application(argc, argv);
  QApplication::setQuitOnLastWindowClosed(false);
  const auto started = kite::Qt6::start(application, kite::test::options());
  if (!started) return 1;
  kite::test::BusyThread busy;

  QWidget first, second;
  first.setWindowTitle("first");
  QWidget belonging(&first, Qt::Window);
  QDialog dialog;
  QWidget tool(nullptr, Qt::Tool);
  QWidget unmanaged(nullptr, Qt::Window | Qt::BypassWindowManagerHint);
  QSplashScreen splash(QPixmap(40, 40));

  QTimer answering;  // once the loop has done what the command left to it
  answering.setSingleShot(true);
  QObject::connect(&answering, &QTimer::timeout, [] { kite::test::answer(); });
  kite::test::Commands commands;
  const auto on = [&](const std::string& line, std::function<void()> action) {
    commands.on(line, [&answering, action = std::move(action)] {
      action();
      answering.start(0);
    });
  };
  on("show", [&] { first.show(); });
  on("hide", [&] { first.hide(); });
  on("close", [&] { first.close(); });
  on("minimise", [&] { first.showMinimized(); });
  on("restore", [&] { first.showNormal(); });
  on("swap", [&] {
    first.close();
    second.show();
  });
  on("swap later", [&] {
    second.close();
    QTimer::singleShot(0, &first, &QWidget::show);
  });
  on("glimpse", [&] {
    first.show();
    first.hide();
  });
  on("dialog", [&] { dialog.show(); });
  on("others", [&] {
    belonging.show();
    tool.show();
    unmanaged.show();
  });
  on("splash", [&] { splash.show(); });
  on("busy", [&] { busy.start(started->kite()); });
  commands.on("count", [&] { kite::test::answerTracked(started->application()); });
  commands.on("quit", [] { QApplication::exit(0); });

  QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
  QObject::connect(&input, &QSocketNotifier::activated, [&] { commands.readOne(); });
  kite::test::answer();
  const int status = QApplication::exec();
  busy.end();
  std::_Exit(status);  // nothing is destroyed: the quit alone has drained the library
}
