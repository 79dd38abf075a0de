#include "Demo/Progress.h"

#include <fmt/format.h>

#include <algorithm>

namespace kite::tool {
namespace {

constexpr auto redrawInterval = std::chrono::milliseconds(100);
// Only a first guess, which what happens soon outweighs.
constexpr double secondsOfScenes = 6;
constexpr double eventsInASecond = 300;

}  // namespace

double secondsLeft(std::size_t events, const Progress::Counts& counts, double elapsed) {
  const auto wanted = static_cast<double>(std::max(events, counts.tracked));
  const double done = static_cast<double>(counts.delivered) / wanted;
  const double guess = secondsOfScenes + wanted / eventsInASecond;
  if (done <= 0) return std::max(guess - elapsed, 1.0);
  // All would take elapsed / done at this pace; the guess counts for the part that is not done.
  return (1 - done) * ((1 - done) * guess + elapsed);
}

Progress::~Progress() {
  if (_width == 0) return;
  fmt::print(_audience.out, "\n");
  std::fflush(_audience.out);
}

void Progress::beginScene(const std::string& scene, const Counts& counts) {
  _scene = scene;
  show(counts);
}

bool Progress::isDue(Clock::time_point now) const {
  return _audience.canRedraw && (!_drawn || now - *_drawn >= redrawInterval);
}

void Progress::update(const Counts& counts) {
  if (_audience.canRedraw) show(counts);
}

void Progress::show(const Counts& counts) {
  _drawn = Clock::now();
  const double elapsed = std::chrono::duration<double>(*_drawn - _start).count();
  const auto numbers =
      fmt::format("{:>5} tracked, {:>5} delivered, {:>3.0f} s left", counts.tracked,
                  counts.delivered, secondsLeft(_events, counts, elapsed));
  auto scene = fmt::format(" | {}", _scene);
  if (_audience.canRedraw) {
    // A line that wraps cannot be redrawn; spaces cover what is left of a longer one.
    const auto columns = _audience.columns();
    scene.resize(std::min(scene.size(), columns - std::min(columns, numbers.size() + 1)));
    const auto width = numbers.size() + scene.size();
    scene.append(_width > width ? _width - width : 0, ' ');
    _width = width;
  }
  fmt::print(_audience.out, "{}{}{}{}", _audience.canRedraw ? "\r" : "", _audience.good(numbers),
             _audience.faint(scene), _audience.canRedraw ? "" : "\n");
  std::fflush(_audience.out);
}

}  // namespace kite::tool
