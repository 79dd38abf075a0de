#pragma once

#include "Demo/Audience.h"

#include <chrono>
#include <optional>
#include <string>

namespace kite::tool {

/// How far the demo is: one line, redrawn on a terminal; elsewhere a line for each scene.
class Progress {
 public:
  using Clock = std::chrono::steady_clock;
  struct Counts {
    std::size_t tracked = 0;
    std::size_t delivered = 0;
  };

  /// The host will track `events`, beside those that the library makes by itself.
  Progress(Audience audience, std::size_t events) : _audience(audience), _events(events) {}
  /// Leaves the last line standing.
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void beginScene(const std::string& scene, const Counts& counts);
  /// Whether a redrawn line is due: counting what has arrived costs something.
  bool isDue(Clock::time_point now) const;
  void update(const Counts& counts);

 private:
  void show(const Counts& counts);

  Audience _audience;
  std::size_t _events;
  std::string _scene;
  const Clock::time_point _start = Clock::now();
  std::optional<Clock::time_point> _drawn;
  std::size_t _width = 0;  ///< of the line that is to be redrawn
};

/// About how many seconds a demo still takes of which `counts` are done after `elapsed` seconds.
double secondsLeft(std::size_t events, const Progress::Counts& counts, double elapsed);

}  // namespace kite::tool
