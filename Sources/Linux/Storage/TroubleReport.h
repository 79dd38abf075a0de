#pragma once

#include <Kite/Platform/System.h>

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
    _isOver = false;
    if (_lastLine && now - *_lastLine < secondsBetweenLines) return;
    _lastLine = now;
    _system.print("[KITE] The " + _title + " cannot be saved, values stay in memory: " + reason);
  }
  void isOver() {
    if (_isOver) return;
    _isOver = true;
    _lastLine.reset();
    _system.print("[KITE] The " + _title + " is saved again");
  }

 private:
  static constexpr double secondsBetweenLines = 60;

  System _system;
  std::string _title;
  std::optional<Date> _lastLine;
  bool _isOver = true;
};

}  // namespace kite::Linux
