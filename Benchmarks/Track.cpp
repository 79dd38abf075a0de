#include "Fixture/Latencies.h"
#include "Fixture/PlainQueue.h"
#include "Fixture/ReferenceEvent.h"
#include "Fixture/Scaled.h"
#include "Fixture/StartedHost.h"
#include "Support/TemporaryFolder.h"

#include <memory>
#include <thread>

namespace kite::bench {
namespace {

struct TrackingHost {
  test::TemporaryFolder folder;
  StartedHost host{{.folder = folder.path()}};
};
std::unique_ptr<TrackingHost> tracking;  // of all threads of one run

void startTracking(const benchmark::State&) {
  tracking = std::make_unique<TrackingHost>();
  tracking->host.track(1000);
  tracking->host.settleStorage();
}
void endTracking(const benchmark::State&) { tracking.reset(); }

void track(benchmark::State& state) {
  KiteManager& kite = tracking->host.kite();
  Latencies calls(static_cast<std::size_t>(state.max_iterations));
  for (auto _ : state) calls.time([&] { kite.trackUserAction(actionName, actionProperties()); });
  calls.report(state);
  state.SetItemsProcessed(state.iterations());
}

std::unique_ptr<PlainQueue> plainQueue;

void startPlainQueue(const benchmark::State&) { plainQueue = std::make_unique<PlainQueue>(); }
void endPlainQueue(const benchmark::State&) { plainQueue.reset(); }

void trackLimit(benchmark::State& state) {
  Latencies calls(static_cast<std::size_t>(state.max_iterations));
  for (auto _ : state) calls.time([&] { plainQueue->push(actionName, actionProperties()); });
  calls.report(state);
  state.SetItemsProcessed(state.iterations());
}

/// Whether all events of two threads are on the disk in the end.
void trackLosesNothing(benchmark::State& state) {
  const int count = static_cast<int>(scaled(50000));
  for (auto _ : state) {
    test::TemporaryFolder folder;
    HandDrivenHost host({.folder = folder.path()});
    host.flush();
    const auto before = host->storedEvents();
    {
      const std::jthread one([&] { host->track(count); });
      const std::jthread other([&] { host->track(count); });
    }
    host->settleStorage();
    host.flush();
    const auto arrived = host->storedEvents() - before;
    state.counters["lost"] = 2.0 * count - static_cast<double>(arrived);
  }
}

const auto callCount = scaled(200000);
BENCHMARK(track)
    ->Name("track")
    ->Setup(startTracking)
    ->Teardown(endTracking)
    ->Iterations(callCount)
    ->Threads(1)
    ->Threads(2)
    ->UseRealTime();
BENCHMARK(trackLimit)
    ->Name("track/limit")
    ->Setup(startPlainQueue)
    ->Teardown(endPlainQueue)
    ->Iterations(callCount)
    ->Threads(1)
    ->Threads(2)
    ->UseRealTime();
BENCHMARK(trackLosesNothing)->Name("track/lost")->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace kite::bench
