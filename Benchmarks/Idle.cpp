#include "Fixture/Latencies.h"
#include "Fixture/ReferenceEvent.h"
#include "Fixture/Scaled.h"
#include "Fixture/Sink.h"
#include "Fixture/StartedHost.h"
#include "Support/TemporaryFolder.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <ctime>
#include <fstream>
#include <map>
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
double processorMilliseconds(clockid_t clock) {
  timespec time{};
  ::clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) * 1e-6;
}

struct Effort {
  double wakeUps;
  double processorMilliseconds;

  friend Effort operator-(Effort a, Effort b) {
    return {a.wakeUps - b.wakeUps, a.processorMilliseconds - b.processorMilliseconds};
  }
};

std::string thisThread() { return std::to_string(::syscall(SYS_gettid)); }

/// Of all threads but this one.
Effort effortOfOthers() {
  double wakeUps = 0;
  for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task"))
    if (thread.path().filename() != thisThread()) wakeUps += sleepsOf(thread.path().filename());
  return {wakeUps, processorMilliseconds(CLOCK_PROCESS_CPUTIME_ID) -
                       processorMilliseconds(CLOCK_THREAD_CPUTIME_ID)};
}

/// Periods of the timers that a session needs: heartbeat, upload, flush.
constexpr std::chrono::seconds periods[] = {std::chrono::seconds(1), std::chrono::seconds(2),
                                            std::chrono::seconds(10)};

/// The least that these timers can be: one thread that sleeps until the next one is due, and then
/// does nothing.
Effort bareTimers(Clock::time_point end) {
  std::multimap<Clock::time_point, std::chrono::seconds> due;
  auto start = Clock::now();
  for (const auto period : periods) {
    due.emplace(start + std::chrono::milliseconds(period) / 2, period);
    start += std::chrono::milliseconds(5);  // they do not begin at once in a host either
  }
  const double sleepsBefore = sleepsOf(thisThread());
  const double processorBefore = processorMilliseconds(CLOCK_THREAD_CPUTIME_ID);
  while (due.begin()->first < end) {
    const auto [time, period] = *due.begin();
    std::this_thread::sleep_until(time);
    due.erase(due.begin());
    due.emplace(time + period, period);
  }
  const double processor = processorMilliseconds(CLOCK_THREAD_CPUTIME_ID) - processorBefore;
  return {sleepsOf(thisThread()) - sleepsBefore, processor};
}

/// A host in a session whose user does nothing, beside the bare timers.
void idle(benchmark::State& state) {
  const Seconds untilAtRest(isSmoke() ? 0.1 : 10.5);  // all uploaded, all saved
  const Seconds duration(isSmoke() ? 0.2 : 20);
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
