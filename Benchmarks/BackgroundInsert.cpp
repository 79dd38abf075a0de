#include "Fixture/Latencies.h"
#include "Fixture/RawFile.h"
#include "Fixture/ReferenceEvent.h"
#include "Fixture/Scaled.h"
#include "Fixture/StartedHost.h"
#include "Support/TemporaryFolder.h"

#include <thread>

namespace kite::bench {
namespace {

/// From the tracking call until its event is in the store's log, with so many pending already; and
/// one write of as many bytes.
void backgroundInsert(benchmark::State& state) {
  const auto pending = scaled(state.range(0));
  const auto bytes = joined(eventTexts(1));
  test::TemporaryFolder folder;
  RawFile file(folder.path());
  HandDrivenHost host({.folder = folder.path()});
  host->track(static_cast<int>(pending));
  host->enterBackground();
  Comparison insertions(state);
  for (auto _ : state) {
    const auto before = host->store().edits();
    const auto insert = [&] {
      host->kite().trackUserAction(actionName, actionProperties());
      while (host->store().edits() == before) std::this_thread::yield();
    };
    insertions.round(insert, [&] { file.append(bytes); });
  }
}
BENCHMARK(backgroundInsert)
    ->Name("background_insert")
    ->Arg(0)
    ->Arg(1000)
    ->Arg(10000)
    ->Arg(100000)
    ->Iterations(scaled(2000))
    ->UseManualTime();

}  // namespace
}  // namespace kite::bench
