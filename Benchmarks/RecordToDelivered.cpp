#include "Events/EventEncoder.h"
#include "Fixture/Latencies.h"
#include "Fixture/PlainBody.h"
#include "Fixture/ProcessorTime.h"
#include "Fixture/Scaled.h"
#include "Fixture/Sink.h"
#include "Fixture/StartedHost.h"
#include "Support/TemporaryFolder.h"

namespace kite::bench {
namespace {

constexpr int batchSize = 500;

/// What encoding and compressing alone take for one event, in microseconds of a processor.
double leastShare() {
  constexpr int rounds = 5;
  const auto origin = std::make_shared<EventOrigin>(EventOrigin{application, user()});
  Compressor compressor;
  double seconds = 0;
  for (int round = 0; round < rounds; ++round) {
    std::vector<TrackedEvent> events;
    for (int i = 0; i < batchSize; ++i) events.push_back(trackedEvent(origin, i));
    EventEncoder encoder;
    std::string text;
    const auto before = processorSeconds(CLOCK_THREAD_CPUTIME_ID);
    for (const auto& event : events)
      benchmark::DoNotOptimize(encoder.encode(event)->appendStamped(text, 1));
    benchmark::DoNotOptimize(compressor.compress(text));
    seconds += processorSeconds(CLOCK_THREAD_CPUTIME_ID) - before;
  }
  return seconds * 1e6 / (rounds * batchSize);
}

/// The whole way of an event, the call included: batch after batch is tracked and uploaded, and
/// every fifth time all is saved, as the timers of a session would have it.
void recordToDelivered(benchmark::State& state) {
  constexpr int batchesBetweenFlushes = 5;
  const int batches = static_cast<int>(scaled(state.range(0))) / batchSize + 1;
  for (auto _ : state) {
    const double limit = leastShare();
    test::TemporaryFolder folder;
    const Sink sink(folder.path() / "sink");
    HandDrivenHost host({.folder = folder.path(), .endpoint = sink.url(), .caFile = sink.caFile()});
    host.upload();  // connects
    const auto before = processorSeconds();
    const auto begin = Clock::now();
    for (int batch = 1; batch <= batches; ++batch) {
      host->track(batchSize);
      host.upload();
      if (batch % batchesBetweenFlushes == 0) host.flush();
    }
    state.SetIterationTime(secondsSince(begin));
    state.counters["cpu_us_per_event"] =
        (processorSeconds() - before) * 1e6 / (batches * batchSize);
    state.counters["limit_cpu_us_per_event"] = limit;
    host.upload();  // what the start of the host itself had tracked
    host.flush();
    if (host->storedEvents() != 0) state.SkipWithError("events were left behind");
  }
}
BENCHMARK(recordToDelivered)
    ->Name("record_to_delivered")
    ->Arg(20000)
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace kite::bench
