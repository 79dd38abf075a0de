#pragma once

#include <Kite/Platform/System.h>

#include <cmath>
#include <optional>
#include <string>
#include <utility>

namespace kite::Linux {

/// Tells the console when saving stops to work and when it works again, without flooding it.
class TroubleReport {
 public:
  TroubleReport(System system, std::string title)
      : _system(std::move(system)), _title(std::move(title)) {}

  void goesOn(const std::string& reason) {
    const auto now = _system.now();
    // A clock that was put back must not silence it for long.
    if (_lastLine && std::abs(now - *_lastLine) < secondsBetweenLines) return;
    _lastLine = now;
    _isTold = true;
    _system.print("[KITE] The " + _title + " cannot be saved, values stay in memory: " + reason);
  }
  /// For trouble that is told once, however long it lasts.
  void begins(const std::string& reason) {
    if (!_isTold) goesOn(reason);
  }
  /// Another line has told of it.
  void wasTold() {
    _lastLine = _system.now();
    _isTold = true;
  }
  void isOver() {
    if (!_isTold) return;
    _isTold = false;
    _system.print("[KITE] The " + _title + " is saved again");
  }

 private:
  static constexpr double secondsBetweenLines = 60;

  System _system;
  std::string _title;
  std::optional<Date> _lastLine;
  bool _isTold = false;  ///< and not over
};

}  // namespace kite::Linux
