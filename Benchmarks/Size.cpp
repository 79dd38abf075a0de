#include <benchmark/benchmark.h>

#include <filesystem>

namespace kite::bench {
namespace {

/// The library as it is shipped: shared, with the Linux parts, stripped.
void size(benchmark::State& state) {
  for (auto _ : state)
    state.counters["kilobytes"] =
        static_cast<double>(std::filesystem::file_size(KITE_STRIPPED_LIBRARY)) / 1000;
}
BENCHMARK(size)->Iterations(1);

}  // namespace
}  // namespace kite::bench
