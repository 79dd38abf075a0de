#include "Fixture/Latencies.h"
#include "Fixture/PlainBody.h"
#include "Fixture/ProcessorTime.h"
#include "Fixture/ReferenceEvent.h"
#include "Fixture/Scaled.h"
#include "Fixture/Sink.h"
#include "Fixture/StartedHost.h"
#include "Support/TemporaryFolder.h"

namespace kite::bench {
namespace {

/// What the compressor alone needs for one of the pending events, in microseconds.
double compressorShare(StartedHost& host) {
  const std::string text = host.storedText();
  Compressor compressor;
  constexpr int rounds = 3;
  Latencies bodies(rounds);
  for (int i = 0; i < rounds; ++i)
    bodies.time([&] { benchmark::DoNotOptimize(compressor.compress(text)); });
  return bodies.quantile(0.5) / static_cast<double>(host.storedEvents());
}

/// Uploads so many pending events, batch after batch, without the pause between them. Connecting
/// is part of it.
void upload(benchmark::State& state) {
  const auto count = scaled(state.range(0));
  for (auto _ : state) {
    test::TemporaryFolder folder;
    const Sink sink(folder.path() / "sink");
    HandDrivenHost host({.folder = folder.path(), .endpoint = sink.url(), .caFile = sink.caFile()});
    host->track(static_cast<int>(count));
    host.flush();
    const double limit = compressorShare(*host);
    const double processorBefore = processorSeconds();
    const auto begin = Clock::now();
    for (std::int64_t sent = 0; sent < count; sent += 500) host.upload();
    const double seconds = secondsSince(begin);
    const double processor = processorSeconds() - processorBefore;
    state.SetIterationTime(seconds);
    state.counters["events_per_second"] = static_cast<double>(count) / seconds;
    state.counters["cpu_us_per_event"] = processor * 1e6 / static_cast<double>(count);
    state.counters["limit_events_per_second"] = 1e6 / limit;
    state.counters["limit_cpu_us_per_event"] = limit;
    host.upload();  // what the start of the host itself had tracked
    host.flush();
    if (host->storedEvents() != 0) state.SkipWithError("events were left behind");
  }
}
BENCHMARK(upload)->Arg(10000)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace kite::bench
