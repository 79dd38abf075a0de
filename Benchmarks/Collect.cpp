#include "Collector/Checks/Signature.h"
#include "Collector/Collector.h"
#include "Fixture/Latencies.h"
#include "Fixture/PlainBody.h"
#include "Fixture/ReferenceEvent.h"
#include "Fixture/Scaled.h"
#include "Support/TemporaryFolder.h"

#include <curl/curl.h>

#include <atomic>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace kite::bench {
namespace {

constexpr const char* key = "the key of the benchmark";
constexpr int eventsPerRequest = 500;
constexpr int requestsOfAClient = 100'000;

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
          {"Content-Type: application/json", "Content-Encoding: gzip",
           "Expect:", std::string("Lumo-Id: ") + application,
           "Kite-Client-ID: " + std::to_string(number / requestsOfAClient), "Kite-Tester: true",
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

/// A collector with one client of its own, which waits for each answer.
class Lane {
 public:
  Lane(int number, int requests, const std::string& folder, const std::string& database)
      : _requests(requests),
        _collector(
            {.key = key,
             .database = database,
             .certificate = tool::SelfSignedFolder{folder + "/tls"},
             .onRequest = [this](const tool::RequestReport&) { _processor = threadSeconds(); }}) {
    const auto address = _collector.start();
    if (!address) throw std::runtime_error(address.error());
    const std::string host = address->url.substr(8, address->url.find('/', 8) - 8);
    const int first = number * requestsOfAClient;
    for (int i = 0; i <= requests; ++i) _prepared.push_back(request(first + i, host));
    _client.emplace(address->url, address->ca);
    _client->post(_prepared[0]);  // connecting is no part of it
    _processorBefore = _processor;
  }
  void post() {
    for (std::size_t i = 1; i < _prepared.size(); ++i) _client->post(_prepared[i]);
  }
  double processorSeconds() const { return _processor - _processorBefore; }
  bool hasStoredAll() const {
    return _collector.statistics().newEvents ==
           static_cast<std::size_t>(_requests + 1) * eventsPerRequest;
  }

 private:
  int _requests;
  std::atomic<double> _processor = 0;  // of the collector's thread, which stores into a file itself
  double _processorBefore = 0;
  tool::Collector _collector;
  std::vector<SignedRequest> _prepared;
  std::optional<Client> _client;
};

/// Collectors take in, check and store uploads, over TLS, each those of one client. They store in
/// one SQLite file, or in the empty PostgreSQL database that KITE_BENCH_DATABASE names; there is
/// one collector unless KITE_BENCH_COLLECTORS says otherwise.
void collect(benchmark::State& state) {
  const char* collectors = std::getenv("KITE_BENCH_COLLECTORS");
  const int lanes = collectors ? std::atoi(collectors) : 1;
  const auto requests = static_cast<int>(scaled(state.range(0)) / eventsPerRequest / lanes) + 1;
  for (auto _ : state) {
    test::TemporaryFolder folder;
    const char* database = std::getenv("KITE_BENCH_DATABASE");
    const std::string place = database ? database : (folder.path() / "events.db").string();
    std::vector<std::unique_ptr<Lane>> all;
    for (int i = 0; i < lanes; ++i) {
      all.push_back(std::make_unique<Lane>(i, requests, folder.path(), place));
    }
    const auto begin = Clock::now();
    std::vector<std::thread> threads;
    for (const auto& lane : all) threads.emplace_back([&lane] { lane->post(); });
    for (std::thread& thread : threads) thread.join();
    const double seconds = secondsSince(begin);
    const double events = static_cast<double>(requests) * eventsPerRequest * lanes;
    double processor = 0;
    for (const auto& lane : all) processor += lane->processorSeconds();
    state.SetIterationTime(seconds);
    state.counters["events_per_second"] = events / seconds;
    if (!database) state.counters["cpu_us_per_event"] = processor * 1e6 / events;
    for (const auto& lane : all) {
      if (!lane->hasStoredAll()) state.SkipWithError("events are missing");
    }
  }
}
BENCHMARK(collect)->Arg(50000)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace kite::bench
