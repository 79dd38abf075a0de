#include "Fixture/Latencies.h"
#include "Fixture/RawFile.h"
#include "Fixture/ReferenceEvent.h"
#include "Fixture/Scaled.h"
#include "Fixture/StartedStorage.h"
#include "Support/Queues.h"
#include "Support/TemporaryFolder.h"

namespace kite::bench {
namespace {

constexpr int flushSize = 500;

/// So many events on the disk, and a plain file beside them. All on one thread: what a hand-over
/// costs is measured elsewhere.
struct StoredEvents {
  explicit StoredEvents(std::int64_t count)
      : storage(folder.path(), /*isInBackground=*/false, std::make_shared<test::ImmediateQueue>()),
        file(folder.path()) {
    storage.insert(static_cast<int>(count));
    storage.flush();
  }

  const std::string bytes = joined(eventTexts(flushSize));
  test::TemporaryFolder folder;
  StartedStorage storage;
  RawFile file;
};

/// The periodic flush after a batch of new events; and as many bytes in one write and sync.
void flush(benchmark::State& state) {
  StoredEvents stored(scaled(state.range(0)));
  Comparison flushes(state);
  for (auto _ : state) {
    stored.storage.insert(flushSize);
    flushes.round([&] { stored.storage.flush(); },
                  [&] { stored.file.appendAndSync(stored.bytes); });
    stored.storage.accept(stored.storage.oldest(flushSize));
    stored.storage.flush();
  }
}

/// An accepted batch leaves the pending events, in memory and on the disk; and one small write and
/// sync.
void accept(benchmark::State& state) {
  StoredEvents stored(scaled(state.range(0)) + flushSize);
  Comparison acceptances(state);
  for (auto _ : state) {
    auto ids = stored.storage.oldest(flushSize);
    const auto accept = [&] {
      stored.storage.accept(std::move(ids));
      stored.storage.flush();
    };
    acceptances.round(accept, [&] { stored.file.appendAndSync("one record of what was removed"); });
    stored.storage.insert(flushSize);
    stored.storage.flush();
  }
}

const auto flushes = scaled(40);
constexpr auto unit = benchmark::kMicrosecond;
BENCHMARK(flush)->Arg(1000)->Arg(10000)->Arg(100000)->Iterations(flushes)->UseManualTime()->Unit(
    unit);
BENCHMARK(accept)->Arg(1000)->Arg(10000)->Arg(100000)->Iterations(flushes)->UseManualTime()->Unit(
    unit);

}  // namespace
}  // namespace kite::bench
