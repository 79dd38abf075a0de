#include "Fixture/Latencies.h"
#include "Fixture/PlainBody.h"
#include "Fixture/QuietSystem.h"
#include "Fixture/Scaled.h"
#include "Upload/Headers.h"
#include "Upload/KiteAPIManagerImpl.h"

namespace kite::bench {
namespace {

HeaderFields headers(std::shared_ptr<const Data> compressed) {
  return computeHeaders({.from = std::nullopt,
                         .clientId = "6B29FC40-CA47-1067-B31D-00DD010662DA",
                         .isTestEnvironment = false,
                         .lumoID = application,
                         .version = "iOS-4.0.0",
                         .url = *URL::parse("https://127.0.0.1:9/v4/events"),
                         .body = std::move(compressed),
                         .secret = "d41c9a4e0b7f4f6c8f5d2f7ab6c0e1d3",
                         .wicketUUID = eventID(1),
                         .now = {1765432200.5}});
}

/// All of a request but its sending; and the compressor over the same bytes.
void body(benchmark::State& state) {
  const EventBatch events = batch(static_cast<int>(state.range(0)));
  const std::string text = plainBody(events);
  const auto manager = std::make_shared<KiteAPIManagerImpl>(quietSystem());
  Compressor compressor;
  Comparison bodies(state);
  for (auto _ : state) {
    const auto request = [&] {
      benchmark::DoNotOptimize(headers(manager->prepareBody(
          {.delta = 0.5, .lastEventTimestamp = 1.5, .events = events}, 1765432200.5)));
    };
    bodies.round(request, [&] { benchmark::DoNotOptimize(compressor.compress(text)); });
  }
}
BENCHMARK(body)->Arg(500)->Iterations(scaled(100))->UseManualTime()->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace kite::bench
