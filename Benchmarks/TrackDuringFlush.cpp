#include "Fixture/Latencies.h"
#include "Fixture/ReferenceEvent.h"
#include "Fixture/Scaled.h"
#include "Fixture/Sink.h"
#include "Fixture/StartedHost.h"
#include "Support/TemporaryFolder.h"

#include <atomic>
#include <thread>

namespace kite::bench {
namespace {

constexpr int uploadSize = SynchronizationManagerImpl::batchLimit;

/// Flushes and uploads so many events, as fast as it goes.
void ship(HandDrivenHost& host, int events) {
  constexpr int batchesBetweenFlushes = 20;
  for (int batch = 0; batch * uploadSize < events; ++batch) {
    if (batch % batchesBetweenFlushes == 0) host.flush();
    host.upload();
  }
}

/// A host that tracks fifty events every millisecond while a hundred thousand are on their way.
void trackDuringFlush(benchmark::State& state) {
  const int pending = static_cast<int>(scaled(state.range(0)));
  constexpr int burst = 50;
  for (auto _ : state) {
    test::TemporaryFolder folder;
    const Sink sink(folder.path() / "sink");
    HandDrivenHost host({.folder = folder.path(), .endpoint = sink.url(), .caFile = sink.caFile()});
    host->track(pending);
    host->settleStorage();

    Latencies calls(4'000'000);
    std::atomic<bool> isShipped = false;
    const auto begin = Clock::now();
    std::jthread shipping([&] {
      ship(host, pending);
      isShipped = true;
    });
    while (!isShipped) {
      for (int i = 0; i < burst; ++i)
        calls.time([&] { host->kite().trackUserAction(actionName, actionProperties()); });
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    state.SetIterationTime(secondsSince(begin));
    calls.report(state);
  }
}
BENCHMARK(trackDuringFlush)
    ->Name("track_during_flush")
    ->Arg(100000)
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace kite::bench
