#include "Fixture/Latencies.h"
#include "Fixture/PlainBody.h"
#include "Fixture/ProcessorTime.h"
#include "Fixture/Scaled.h"
#include "Fixture/StartedHost.h"
#include "Support/TemporaryFolder.h"

#include <thread>

namespace kite::bench {
namespace {

using Seconds = std::chrono::duration<double>;

/// What the compressor alone takes for the attempts of a minute, in milliseconds of a processor. It
/// pauses before each run as they do, since the caches are cold then.
double compressorMilliseconds() {
  constexpr double attemptsEachMinute = 30;
  constexpr int runs = 5;
  const Seconds pause(isSmoke() ? 0 : 60 / attemptsEachMinute);
  const std::string text = plainBody(batch(SynchronizationManagerImpl::batchLimit));
  Compressor compressor;
  double seconds = 0;
  for (int i = 0; i < runs; ++i) {
    std::this_thread::sleep_for(pause);
    const auto before = processorSeconds(CLOCK_THREAD_CPUTIME_ID);
    benchmark::DoNotOptimize(compressor.compress(text));
    seconds += processorSeconds(CLOCK_THREAD_CPUTIME_ID) - before;
  }
  return seconds * 1e3 * attemptsEachMinute / runs;
}

/// A host in a session with so many pending events and nobody at the endpoint, trying on its
/// timers.
void offline(benchmark::State& state) {
  const Seconds untilAtRest(isSmoke() ? 0.1 : 10.5);  // all saved
  const Seconds duration(isSmoke() ? 0.2 : 20);
  for (auto _ : state) {
    test::TemporaryFolder folder;
    StartedHost host({.folder = folder.path()});
    host.track(static_cast<int>(scaled(state.range(0))));
    const double limit = compressorMilliseconds();
    std::this_thread::sleep_for(untilAtRest);
    const auto before = processorSeconds();
    std::this_thread::sleep_for(duration);
    state.counters["cpu_ms_per_minute"] =
        (processorSeconds() - before) * 1e3 * 60 / duration.count();
    state.counters["limit_cpu_ms_per_minute"] = limit;
  }
}
BENCHMARK(offline)->Arg(1000)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace kite::bench
