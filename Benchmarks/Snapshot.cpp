#include "Fixture/Latencies.h"
#include "Fixture/Scaled.h"
#include "Fixture/StartedStorage.h"
#include "Support/TemporaryFolder.h"

#include <fstream>
#include <string>

namespace kite::bench {
namespace {

/// Reading the pending events and taking a batch; and copying the handles of a batch.
void snapshot(benchmark::State& state) {
  constexpr std::size_t handles = 500;
  test::TemporaryFolder folder;
  StartedStorage storage(folder.path());
  storage.insert(static_cast<int>(scaled(state.range(0))));
  const EventBatch events = *storage.pending().first(handles);
  Comparison snapshots(state);
  for (auto _ : state) {
    EventBatch taken;
    EventBatch copied;
    snapshots.round([&] { taken = *storage.pending().first(handles); }, [&] { copied = events; });
    benchmark::DoNotOptimize(taken.data());
    benchmark::DoNotOptimize(copied.data());
  }
}
BENCHMARK(snapshot)->Arg(1000)->Arg(10000)->Arg(100000)->Iterations(scaled(2000))->UseManualTime();

/// Reading a batch of saved events back; and reading as many bytes of a file.
void batch(benchmark::State& state) {
  test::TemporaryFolder folder;
  StartedStorage storage(folder.path());
  const auto count = static_cast<std::size_t>(scaled(state.range(0)));
  storage.insert(static_cast<int>(count));
  storage.flush();
  const auto text = storage.storedText();
  const auto file = folder.path() / "plain";
  std::ofstream(file, std::ios::binary) << text;
  std::string plain(text.size(), '\0');
  Comparison batches(state);
  for (auto _ : state) {
    EventBatch read;
    batches.round([&] { read = *storage.pending().first(count); },
                  [&] {
                    std::ifstream stream(file, std::ios::binary);
                    stream.rdbuf()->pubsetbuf(nullptr, 0);
                    stream.read(plain.data(), static_cast<std::streamsize>(plain.size()));
                  });
    if (read.size() != count) state.SkipWithError("events are missing");
  }
}
BENCHMARK(batch)->Arg(500)->Iterations(scaled(200))->UseManualTime();

}  // namespace
}  // namespace kite::bench
