#include "Fixture/Latencies.h"
#include "Fixture/ProcessorTime.h"
#include "Fixture/Scaled.h"
#include "Fixture/Sink.h"
#include "Fixture/StartedHost.h"
#include "Support/TemporaryFolder.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <fstream>
#include <thread>

namespace kite::bench {
namespace {

using Seconds = std::chrono::duration<double>;

/// How often a thread, by its number, has gone to sleep by itself.
double sleepsOf(const std::string& thread) {
  std::ifstream status("/proc/self/task/" + thread + "/status");
  const std::string_view name = "voluntary_ctxt_switches:";
  for (std::string line; std::getline(status, line);)
    if (line.starts_with(name)) return std::stod(line.substr(name.size()));
  return 0;
}

struct Effort {
  double wakeUps;
  double processorMilliseconds;

  friend Effort operator-(Effort a, Effort b) {
    return {a.wakeUps - b.wakeUps, a.processorMilliseconds - b.processorMilliseconds};
  }
};

std::string thisThread() { return std::to_string(::syscall(SYS_gettid)); }

Effort effortOfThisThread() {
  return {sleepsOf(thisThread()), processorSeconds(CLOCK_THREAD_CPUTIME_ID) * 1e3};
}

/// Of all threads but this one.
Effort effortOfOthers() {
  double wakeUps = 0;
  for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task"))
    if (thread.path().filename() != thisThread()) wakeUps += sleepsOf(thread.path().filename());
  return {wakeUps, processorSeconds() * 1e3 - processorSeconds(CLOCK_THREAD_CPUTIME_ID) * 1e3};
}

/// As many wake-ups as a session's timers may have, and nothing done at any of them.
Effort bareTimers(Clock::time_point end) {
  constexpr auto pause = std::chrono::milliseconds(60'000) / 90;
  const auto before = effortOfThisThread();
  for (auto next = Clock::now() + pause / 2; next < end; next += pause)
    std::this_thread::sleep_until(next);
  return effortOfThisThread() - before;
}

/// A host in a session whose user does nothing, beside the bare timers.
void idle(benchmark::State& state) {
  const Seconds untilAtRest(isSmoke() ? 0.1 : 10.5);  // all uploaded, all saved
  const Seconds duration(isSmoke() ? 0.2 : 30);
  for (auto _ : state) {
    test::TemporaryFolder folder;
    const Sink sink(folder.path() / "sink");
    StartedHost host({.folder = folder.path(), .endpoint = sink.url(), .caFile = sink.caFile()});
    std::this_thread::sleep_for(untilAtRest);

    const auto before = effortOfOthers();
    const auto end = Clock::now() + std::chrono::duration_cast<Clock::duration>(duration);
    const auto bare = bareTimers(end);
    std::this_thread::sleep_until(end);
    const auto library = effortOfOthers() - before;
    const double perMinute = 60 / duration.count();
    state.counters["wakeups_per_minute"] = library.wakeUps * perMinute;
    state.counters["cpu_ms_per_minute"] = library.processorMilliseconds * perMinute;
    state.counters["limit_wakeups_per_minute"] = bare.wakeUps * perMinute;
    state.counters["limit_cpu_ms_per_minute"] = bare.processorMilliseconds * perMinute;
  }
}
BENCHMARK(idle)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace kite::bench
