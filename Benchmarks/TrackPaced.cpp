#include "Fixture/Latencies.h"
#include "Fixture/PlainQueue.h"
#include "Fixture/ReferenceEvent.h"
#include "Fixture/Scaled.h"
#include "Fixture/Sink.h"
#include "Fixture/StartedHost.h"
#include "Support/TemporaryFolder.h"

#include <thread>

namespace kite::bench {
namespace {

/// A call every two milliseconds, as hosts make them, with everything else at work; and a push into
/// a plain queue after as long a pause.
void trackPaced(benchmark::State& state) {
  constexpr std::chrono::milliseconds pause(2);
  test::TemporaryFolder folder;
  const Sink sink(folder.path() / "sink");
  StartedHost host({.folder = folder.path(), .endpoint = sink.url(), .caFile = sink.caFile()});
  PlainQueue queue;
  queue.actions.reserve(static_cast<std::size_t>(state.max_iterations));
  Latencies calls(static_cast<std::size_t>(state.max_iterations));
  Latencies pushes(static_cast<std::size_t>(state.max_iterations));
  for (auto _ : state) {
    std::this_thread::sleep_for(pause);
    state.SetIterationTime(
        calls.time([&] { host.kite().trackUserAction(actionName, actionProperties()); }));
    std::this_thread::sleep_for(pause);
    pushes.time([&] { queue.push(actionName, actionProperties()); });
  }
  calls.report(state);
  pushes.report(state, "limit_");
}
BENCHMARK(trackPaced)
    ->Name("track_paced/2ms")
    ->Iterations(scaled(2500))
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace kite::bench
