#pragma once

#include "EndToEnd/Host.h"

#include <stdexcept>
#include <vector>

namespace kite::test {

/// What arrives at a collector, one stretch of it after another.
class Arrivals {
 public:
  explicit Arrivals(const Collector& collector) : _collector(collector) {}

  /// All that has arrived since the last call, once everything that the host has tracked is among
  /// it. The host has to be in the foreground.
  std::vector<Event> next(Host& host) {
    host.call(R"({"op":"trackCustomEvent","in":"Milestone","data":{}})");
    std::vector<Event> events;
    const bool isComplete = eventually([&] {
      events = unseen();
      return !events.empty() && events.back().type == "Milestone";
    });
    if (!isComplete) throw std::runtime_error("what the host has tracked does not arrive");
    _seen += events.size();
    events.pop_back();
    return events;
  }

 private:
  std::vector<Event> unseen() const {
    auto events = _collector.events();
    events.erase(events.begin(), std::next(events.begin(), static_cast<std::ptrdiff_t>(_seen)));
    return events;
  }

  const Collector& _collector;
  std::size_t _seen = 0;
};

}  // namespace kite::test
