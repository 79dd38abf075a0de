#pragma once

#include <Kite/Kite.h>
#include <Kite/Linux/KiteApplication.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <string>
#include <thread>

namespace kite::test {

inline void answer(const std::string& text = "done") { std::cout << text << std::endl; }

/// The service is what the environment says. The end of the drain is an answer, too.
inline Linux::KiteApplicationOptions options() {
  const std::string folder = std::getenv("KITE_TEST_FOLDER");
  return {.name = "windows",
          .version = "1.0",
          .build = "1",
          .dataFolder = folder + "/data",
          .secretsFolder = folder + "/secrets",
          .drainLimits = {.persistWithin = std::chrono::seconds(10),
                          .deliverWithin = std::chrono::seconds(20)},
          .onDrained = [](const DrainReport& report) {
            answer(report.end == DrainEnd::delivered ? "delivered" : "not delivered");
          }};
}

/// How many events were recorded: a session's start and its end are one each.
inline void answerTracked(const Linux::KiteApplication& application) {
  answer(std::to_string(application.status().ledger.tracked));
}

/// What the test says on standard input, line by line, and what is done then.
class Commands {
 public:
  Commands& on(const std::string& line, std::function<void()> action) {
    _actions[line] = std::move(action);
    return *this;
  }
  /// Reads one line and does what it says; the input's end is "quit".
  void readOne() {
    std::string line;
    _actions.at(std::getline(std::cin, line) ? line : "quit")();
  }

 private:
  std::map<std::string, std::function<void()>> _actions;
};

/// A thread that asks the main one again and again, from `start` on: whether there is a foreground,
/// to which alone a custom event belongs.
class BusyThread {
 public:
  ~BusyThread() { end(); }
  void end() {
    _isEnding = true;
    if (_thread.joinable()) _thread.join();
  }
  void start(KiteManagerImpl& kite) {
    _thread = std::thread([this, &kite] {
      while (!_isEnding) kite.trackCustomEvent("Busy", {});
    });
  }

 private:
  std::atomic<bool> _isEnding = false;
  std::thread _thread;
};

}  // namespace kite::test
