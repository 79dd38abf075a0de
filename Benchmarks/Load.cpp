#include "Fixture/Latencies.h"
#include "Fixture/Scaled.h"
#include "Fixture/StartedStorage.h"
#include "Support/TemporaryFolder.h"

#include <simdjson.h>

namespace kite::bench {
namespace {

void fill(const std::filesystem::path& folder, std::int64_t count) {
  StartedStorage storage(folder);
  storage.insert(static_cast<int>(scaled(count)));
  storage.flush();
}

std::string storedText(const std::filesystem::path& folder) {
  return StartedStorage(folder).storedText();
}

/// Opens the store that the last run left behind and takes its events over; and a parser over the
/// same text.
void load(benchmark::State& state) {
  test::TemporaryFolder folder;
  fill(folder.path(), state.range(0));
  const simdjson::padded_string text(storedText(folder.path()));
  simdjson::dom::parser parser;
  if (parser.parse(text).error() != simdjson::SUCCESS) state.SkipWithError("no JSON");
  Comparison loads(state);
  for (auto _ : state) {
    std::optional<StartedStorage> storage;
    loads.round([&] { storage.emplace(folder.path()); },
                [&] { benchmark::DoNotOptimize(parser.parse(text).error()); });
    if (storage->pending().size() != static_cast<std::size_t>(scaled(state.range(0))))
      state.SkipWithError("events were left behind");
  }
}
BENCHMARK(load)->Arg(10000)->Iterations(scaled(20))->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace kite::bench
