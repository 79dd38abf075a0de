#include "Fixture/Latencies.h"
#include "Fixture/Scaled.h"
#include "Fixture/StartedStorage.h"
#include "Support/TemporaryFolder.h"

namespace kite::bench {
namespace {

/// Reading the pending events and taking a batch; and copying the handles of a batch.
void snapshot(benchmark::State& state) {
  constexpr std::size_t batchSize = 500;
  test::TemporaryFolder folder;
  StartedStorage storage(folder.path());
  storage.insert(static_cast<int>(scaled(state.range(0))));
  const EventBatch events = *storage.pending().first(batchSize);
  Comparison snapshots(state);
  for (auto _ : state) {
    EventBatch taken;
    EventBatch copied;
    snapshots.round([&] { taken = *storage.pending().first(batchSize); }, [&] { copied = events; });
    benchmark::DoNotOptimize(taken.data());
    benchmark::DoNotOptimize(copied.data());
  }
}
BENCHMARK(snapshot)->Arg(1000)->Arg(10000)->Arg(100000)->Iterations(scaled(2000))->UseManualTime();

}  // namespace
}  // namespace kite::bench
