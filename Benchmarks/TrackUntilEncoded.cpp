#include "Events/EventEncoder.h"
#include "Fixture/Latencies.h"
#include "Fixture/ReferenceEvent.h"
#include "Fixture/Scaled.h"
#include "Fixture/StartedHost.h"
#include "Support/TemporaryFolder.h"

#include <thread>

namespace kite::bench {
namespace {

/// How many events a second the encoder makes when nothing else is done. Their texts stay, as those
/// of pending events do.
double encodedEachSecond(int count) {
  constexpr int atOnce = 500;
  const auto origin = std::make_shared<EventOrigin>(EventOrigin{application, user()});
  EventEncoder encoder;
  std::vector<EventHandle> handles(static_cast<std::size_t>(count) + atOnce);
  double seconds = 0;
  std::size_t encoded = 0;
  while (encoded < static_cast<std::size_t>(count)) {
    std::vector<TrackedEvent> events;
    for (int i = 0; i < atOnce; ++i) events.push_back(trackedEvent(origin, i));
    const auto begin = Clock::now();
    for (const auto& event : events) handles[encoded++] = encoder.encode(event);
    seconds += secondsSince(begin);
  }
  return static_cast<double>(encoded) / seconds;
}

/// Threads that track as fast as they can, counting until the last event has its text.
void trackUntilEncoded(benchmark::State& state) {
  const int count = static_cast<int>(scaled(200000));
  const auto threads = state.range(0);
  for (auto _ : state) {
    const double limit = encodedEachSecond(count);
    test::TemporaryFolder folder;
    HandDrivenHost host({.folder = folder.path()});
    const auto begin = Clock::now();
    {
      std::vector<std::jthread> callers;
      for (int i = 0; i < threads; ++i) callers.emplace_back([&] { host->track(count); });
    }
    host->settleStorage();
    const double seconds = secondsSince(begin);
    state.SetIterationTime(seconds);
    state.counters["events_per_second"] = static_cast<double>(threads * count) / seconds;
    state.counters["limit_events_per_second"] = limit;
  }
}
BENCHMARK(trackUntilEncoded)
    ->Name("track/until_encoded")
    ->Arg(1)
    ->Arg(2)
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace kite::bench
