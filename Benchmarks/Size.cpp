#include <benchmark/benchmark.h>

#include <filesystem>

namespace kite::bench {
namespace {

double kilobytes(const char* file) {
  return static_cast<double>(std::filesystem::file_size(file)) / 1000;
}

/// The library as it is shipped, shared, with the Linux parts; and the README's first program with
/// the static library in it. Both stripped.
void size(benchmark::State& state) {
  for (auto _ : state) {
    state.counters["library_kilobytes"] = kilobytes(KITE_BENCH_LIBRARY);
    state.counters["host_kilobytes"] = kilobytes(KITE_BENCH_HOST);
  }
}
BENCHMARK(size)->Iterations(1);

}  // namespace
}  // namespace kite::bench
