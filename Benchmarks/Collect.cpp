#include "Collector/Checks/Signature.h"
#include "Collector/Collector.h"
#include "Fixture/Latencies.h"
#include "Fixture/PlainBody.h"
#include "Fixture/ReferenceEvent.h"
#include "Fixture/Scaled.h"
#include "Support/TemporaryFolder.h"

#include <curl/curl.h>

#include <atomic>
#include <ctime>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace kite::bench {
namespace {

constexpr const char* key = "the key of the benchmark";
constexpr int eventsPerRequest = 500;

double threadSeconds() {
  timespec time{};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

struct SignedRequest {
  std::string body;
  std::vector<std::string> headers;
};

/// Upload number so and so, of events that no other has.
SignedRequest request(int number, const std::string& host) {
  const Shared<User> everybody(user());
  EventEncoder encoder;
  EventBatch events;
  for (int i = 0; i < eventsPerRequest; ++i)
    events.push_back(encoder.encode(event(everybody, number * eventsPerRequest + i)));
  std::string body;
  Compressor().compressInto(body, plainBody(std::move(events)));
  const auto timestamp = std::to_string(static_cast<std::int64_t>(tool::systemTime() * 1000));
  const auto requestID = eventID(-1 - number).text();
  const auto signature = tool::signatureOf({.host = host,
                                            .target = "/v4/events",
                                            .body = body,
                                            .timestamp = timestamp,
                                            .requestID = requestID},
                                           "Sha512", key);
  return {std::move(body),
          {"Content-Type: application/json", "Content-Encoding: gzip", "Expect:",
           std::string("Lumo-Id: ") + application, "Kite-Client-ID: benchmark", "Kite-Tester: true",
           "Kite-Version: 1", "Wicket-Protocol: Sha512", "Wicket-Timestamp: " + timestamp,
           "Wicket-Request-Id: " + requestID, "Wicket-Signature: " + signature.value_or("")}};
}

/// One connection that is kept.
class Client {
 public:
  Client(std::string url, const std::string& caFile) : _url(std::move(url)) {
    curl_easy_setopt(_curl.get(), CURLOPT_URL, _url.c_str());
    curl_easy_setopt(_curl.get(), CURLOPT_CAINFO, caFile.c_str());
    curl_easy_setopt(
        _curl.get(), CURLOPT_WRITEFUNCTION,
        +[](char*, std::size_t size, std::size_t count, void*) { return size * count; });
  }
  void post(const SignedRequest& request) {
    curl_slist* headers = nullptr;
    for (const auto& line : request.headers) headers = curl_slist_append(headers, line.c_str());
    curl_easy_setopt(_curl.get(), CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(_curl.get(), CURLOPT_POSTFIELDSIZE_LARGE,
                     static_cast<curl_off_t>(request.body.size()));
    curl_easy_setopt(_curl.get(), CURLOPT_POSTFIELDS, request.body.data());
    const auto result = curl_easy_perform(_curl.get());
    curl_slist_free_all(headers);
    if (result != CURLE_OK) throw std::runtime_error(curl_easy_strerror(result));
  }

 private:
  std::string _url;
  std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> _curl{curl_easy_init(), curl_easy_cleanup};
};

/// The collector takes in, checks and stores uploads of one client, over TLS.
void collect(benchmark::State& state) {
  const auto requests = static_cast<int>(scaled(state.range(0)) / eventsPerRequest) + 1;
  for (auto _ : state) {
    test::TemporaryFolder folder;
    std::atomic<double> processor = 0;  // of the collector's thread, since it began
    tool::Collector collector(
        {.key = key,
         .database = folder.path() / "events.db",
         .certificate = tool::SelfSignedFolder{folder.path() / "tls"},
         .onRequest = [&](const tool::RequestReport&) { processor = threadSeconds(); }});
    const auto address = collector.start();
    if (!address) return state.SkipWithError(address.error().c_str());
    const auto url = address->url;
    const auto host = url.substr(8, url.find('/', 8) - 8);
    std::vector<SignedRequest> prepared;
    for (int number = 0; number <= requests; ++number) prepared.push_back(request(number, host));

    Client client(url, address->ca);
    client.post(prepared[0]);  // connecting is no part of it
    const double processorBefore = processor;
    const auto begin = Clock::now();
    for (int number = 1; number <= requests; ++number)
      client.post(prepared[static_cast<std::size_t>(number)]);
    const double seconds = secondsSince(begin);
    const double events = static_cast<double>(requests) * eventsPerRequest;
    state.SetIterationTime(seconds);
    state.counters["events_per_second"] = events / seconds;
    state.counters["cpu_us_per_event"] = (processor - processorBefore) * 1e6 / events;
    if (collector.statistics().newEvents !=
        static_cast<std::size_t>(requests + 1) * eventsPerRequest)
      state.SkipWithError("events are missing");
  }
}
BENCHMARK(collect)->Arg(50000)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace kite::bench
