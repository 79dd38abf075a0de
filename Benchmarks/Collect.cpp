#include "Collector/Checks/Signature.h"
#include "Collector/Collector.h"
#include "Fixture/BareTable.h"
#include "Fixture/Latencies.h"
#include "Fixture/PlainBody.h"
#include "Fixture/ProcessorTime.h"
#include "Fixture/ReferenceEvent.h"
#include "Fixture/Scaled.h"
#include "Support/TemporaryFolder.h"

#include <curl/curl.h>

#include <cstdlib>
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

int setting(const char* variable, int otherwise) {
  const char* text = std::getenv(variable);
  return text ? std::atoi(text) : otherwise;
}

struct SignedRequest {
  std::string body;
  std::vector<std::string> headers;

  std::size_t size() const {
    std::size_t bytes = body.size();
    for (const auto& header : headers) bytes += header.size() + 2;
    return bytes;
  }
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
      : _collector({.key = key,
                    .database = database,
                    .certificate = tool::SelfSignedFolder{folder + "/tls"}}) {
    const auto address = _collector.start();
    if (!address) throw std::runtime_error(address.error());
    const std::string host = address->url.substr(8, address->url.find('/', 8) - 8);
    const int first = number * requestsOfAClient;
    for (int i = 0; i <= requests; ++i) _prepared.push_back(request(first + i, host));
    _client.emplace(address->url, address->ca);
    _client->post(_prepared[0]);  // connecting is no part of it
  }
  void post() {
    const double before = processorSeconds(CLOCK_THREAD_CPUTIME_ID);
    for (std::size_t i = 1; i < _prepared.size(); ++i) _client->post(_prepared[i]);
    _clientSeconds = processorSeconds(CLOCK_THREAD_CPUTIME_ID) - before;
  }
  /// What `post` took of the processors for sending alone.
  double clientSeconds() const { return _clientSeconds; }
  const std::vector<SignedRequest>& requests() const { return _prepared; }
  double requestSize() const { return static_cast<double>(_prepared.back().size()); }
  bool hasStoredAll() const {
    return _collector.statistics().newEvents == _prepared.size() * eventsPerRequest;
  }

 private:
  tool::Collector _collector;
  std::vector<SignedRequest> _prepared;
  std::optional<Client> _client;
  double _clientSeconds = 0;
};

struct Cost {
  double seconds = 0;
  double processorSeconds = 0;
};

/// What the same uploads cost a bare table.
Cost limit(const std::vector<SignedRequest>& requests, const std::string& file) {
  BareTable table(file);
  Cost cost;
  for (const auto& request : requests) {
    const auto batch = tool::readBatch(*tool::gunzip(request.body, 1 << 26), application);
    const double before = processorSeconds(CLOCK_THREAD_CPUTIME_ID);
    const auto begin = Clock::now();
    table.store(request.body, *batch);
    cost.seconds += secondsSince(begin);
    cost.processorSeconds += processorSeconds(CLOCK_THREAD_CPUTIME_ID) - before;
  }
  return cost;
}

/// Collectors take in, check and store uploads, over TLS, each those of one client. They store in
/// one SQLite file, or in the empty PostgreSQL database that KITE_BENCH_DATABASE names; how many
/// collectors there are, and events in all, KITE_BENCH_COLLECTORS and KITE_BENCH_EVENTS may say.
void collect(benchmark::State& state) {
  const int lanes = setting("KITE_BENCH_COLLECTORS", 1);
  const int events = setting("KITE_BENCH_EVENTS", static_cast<int>(scaled(state.range(0))));
  const int requests = events / eventsPerRequest / lanes + 1;
  for (auto _ : state) {
    test::TemporaryFolder folder;
    const char* database = std::getenv("KITE_BENCH_DATABASE");
    const std::string place = database ? database : (folder.path() / "events.db").string();
    std::vector<std::unique_ptr<Lane>> all;
    for (int i = 0; i < lanes; ++i) {
      all.push_back(std::make_unique<Lane>(i, requests, folder.path(), place));
    }
    const auto begin = Clock::now();
    const double before = processorSeconds();
    std::vector<std::thread> threads;
    for (const auto& lane : all) threads.emplace_back([&lane] { lane->post(); });
    for (std::thread& thread : threads) thread.join();
    const double seconds = secondsSince(begin);
    const double processor = processorSeconds() - before;
    double client = 0;
    for (const auto& lane : all) client += lane->clientSeconds();
    const double taken = static_cast<double>(requests) * eventsPerRequest * lanes;
    state.SetIterationTime(seconds);
    state.counters["events_per_second"] = taken / seconds;
    state.counters["cpu_us_per_event"] = (processor - client) * 1e6 / taken;
    state.counters["client_cpu_us_per_event"] = client * 1e6 / taken;
    state.counters["bytes_per_event"] = all.front()->requestSize() / eventsPerRequest;
    const auto& uploads = all.front()->requests();
    const Cost least = limit(uploads, folder.path() / "bare.db");
    const double stored = static_cast<double>(uploads.size()) * eventsPerRequest;
    state.counters["limit_events_per_second"] = stored / least.seconds;
    state.counters["limit_cpu_us_per_event"] = least.processorSeconds * 1e6 / stored;
    for (const auto& lane : all) {
      if (!lane->hasStoredAll()) state.SkipWithError("events are missing");
    }
  }
}
BENCHMARK(collect)->Arg(50000)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace kite::bench
