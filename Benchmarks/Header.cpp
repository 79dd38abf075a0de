#include "Fixture/Latencies.h"
#include "Support/TemporaryFolder.h"

#include <sys/resource.h>

#include <cstdlib>

namespace kite::bench {
namespace {

double childrenSeconds() {
  rusage usage{};
  ::getrusage(RUSAGE_CHILDREN, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

/// What a command takes of the processors.
double cost(benchmark::State& state, const std::string& command) {
  const auto before = childrenSeconds();
  if (std::system(command.c_str()) != 0) state.SkipWithError("a command failed");
  return childrenSeconds() - before;
}

/// Compiling a source that includes the library's header and nothing else, and one that includes
/// only the standard headers that this one includes.
void header(benchmark::State& state) {
  const test::TemporaryFolder folder;
  const std::string place = folder.path().string();
  const std::string include = KITE_BENCH_INCLUDE;
  const auto compile = [&](const std::string& source) {
    return cost(state, std::string(KITE_BENCH_COMPILER) + " -std=c++20 -O2 -I" + include +
                           " -c -o /dev/null " + place + "/" + source);
  };
  cost(state,
       std::string(KITE_BENCH_HEADER_SOURCES) + " --include " + include + " --write " + place);
  for (auto _ : state) {
    state.counters["seconds"] = compile("kite.cpp");
    state.counters["limit_seconds"] = compile("standard.cpp");
  }
}
BENCHMARK(header)->Iterations(1);

}  // namespace
}  // namespace kite::bench
