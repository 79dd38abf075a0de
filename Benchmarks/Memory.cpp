#include "Fixture/Scaled.h"
#include "Fixture/StartedStorage.h"
#include "Support/TemporaryFolder.h"

#include <benchmark/benchmark.h>
#include <malloc.h>

namespace kite::bench {
namespace {

/// What the allocator has handed out, its own headers included.
double heldBytes() {
  const auto heap = ::mallinfo2();
  return static_cast<double>(heap.uordblks + heap.hblkhd);
}

/// All that the process holds for its pending events, before and after they are saved: the list,
/// the store's own buffers, everything.
void memory(benchmark::State& state) {
  const auto count = static_cast<int>(scaled(state.range(0)));
  for (auto _ : state) {
    test::TemporaryFolder folder;
    StartedStorage storage(folder.path());
    const double before = heldBytes();
    storage.insert(count);
    state.counters["unsaved_bytes_per_event"] = (heldBytes() - before) / count;
    storage.flush();
    state.counters["bytes_per_event"] = (heldBytes() - before) / count;
    state.counters["text_bytes"] = static_cast<double>(eventTexts(1).front().size());
  }
}
BENCHMARK(memory)->Arg(100000)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace kite::bench
