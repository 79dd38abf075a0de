#include "Fixture/Latencies.h"
#include "Fixture/Scaled.h"
#include "Fixture/StartedHost.h"
#include "Fixture/StartedStorage.h"
#include "Support/TemporaryFolder.h"

#include <optional>

namespace kite::bench {
namespace {

/// A facade's first start, in an empty folder: what its caller waits for.
void startFirst(benchmark::State& state) {
  Latencies starts(static_cast<std::size_t>(state.max_iterations));
  for (auto _ : state) {
    test::TemporaryFolder folder;
    std::optional<HandDrivenHost> host;
    state.SetIterationTime(
        starts.time([&] { host.emplace(HostOptions{.folder = folder.path()}); }));
  }
  starts.report(state);
}
BENCHMARK(startFirst)->Name("start/first")->Iterations(scaled(50))->UseManualTime();

/// Opens the store that the last run left behind, until the first batch can be read; and what of
/// that the caller of `start` waits for.
void start(benchmark::State& state) {
  constexpr std::size_t firstBatch = 500;
  const auto count = static_cast<std::size_t>(scaled(state.range(0)));
  test::TemporaryFolder folder;
  {
    StartedStorage storage(folder.path());
    storage.insert(static_cast<int>(count));
    storage.flush();
  }
  Latencies starts(static_cast<std::size_t>(state.max_iterations));
  Latencies callers(static_cast<std::size_t>(state.max_iterations));
  for (auto _ : state) {
    std::optional<StartedStorage> storage;
    std::size_t found = 0;
    state.SetIterationTime(starts.time([&] {
      callers.time([&] { storage.emplace(folder.path()); });
      found = storage->pending().size();
    }));
    if (found != count ||
        storage->pending().first(firstBatch)->size() != std::min(firstBatch, count))
      state.SkipWithError("events were left behind");
  }
  starts.report(state);
  callers.report(state, "caller_");
}
BENCHMARK(start)->Arg(0)->Arg(10000)->Arg(100000)->Iterations(scaled(20))->UseManualTime();

}  // namespace
}  // namespace kite::bench
