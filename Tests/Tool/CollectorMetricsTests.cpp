#include "Collector/Metrics.h"

#include "Collector/Service.h"
#include "CollectorClient.h"
#include "CollectorRequests.h"
#include "FakeStore.h"
#include "MetricsText.h"
#include "RecordedExchange.h"
#include "Support/TemporaryFolder.h"
#include "Tool/Inspector/PlainHTTP.h"

#include <gmock/gmock.h>

namespace kite::test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;
using tool::Metrics;
using tool::RequestReport;
using tool::Service;

RequestReport aReport() {
  return {.method = "POST", .path = "/v4/events", .status = 200, .newEvents = 1};
}

RequestReport aReportOf(double seconds) {
  RequestReport report = aReport();
  report.seconds = seconds;
  return report;
}

TEST(CollectorMetricsText, isValidBeforeTheFirstRequest) {
  const MetricsText metrics(Metrics().text({}));
  EXPECT_EQ(metrics.count("kite_collector_requests_total{"), 7U);
  EXPECT_EQ(metrics["kite_collector_requests_total{outcome=\"accepted\"}"], 0);
  EXPECT_EQ(metrics["kite_collector_refusals_total{error_code=\"603\"}"], 0);
  EXPECT_EQ(metrics["kite_collector_request_duration_seconds_count"], 0);
}

TEST(CollectorMetricsText, sortsTimesByTheirBounds) {
  Metrics counted;
  for (const double seconds : {0.0001, 0.01, 0.0101, 2.0, 100.0}) counted.note(aReportOf(seconds));
  const MetricsText metrics(counted.text({}));
  const std::string name = "kite_collector_request_duration_seconds";
  EXPECT_EQ(metrics[name + "_bucket{le=\"0.0005\"}"], 1);
  EXPECT_EQ(metrics[name + "_bucket{le=\"0.005\"}"], 1);
  EXPECT_EQ(metrics[name + "_bucket{le=\"0.01\"}"], 2);
  EXPECT_EQ(metrics[name + "_bucket{le=\"0.025\"}"], 3);
  EXPECT_EQ(metrics[name + "_bucket{le=\"2\"}"], 4);
  EXPECT_EQ(metrics[name + "_bucket{le=\"5\"}"], 4);
  EXPECT_EQ(metrics[name + "_bucket{le=\"+Inf\"}"], 5);
  EXPECT_DOUBLE_EQ(metrics[name + "_sum"], 102.0202);
}

TEST(CollectorMetricsText, measuresTheStoreOnlyWhereItWasAsked) {
  Metrics counted;
  counted.note(aReport());
  RequestReport stored = aReport();
  stored.storeSeconds = 0.004;
  counted.note(stored);
  const MetricsText metrics(counted.text({}));
  EXPECT_EQ(metrics["kite_collector_store_duration_seconds_count"], 1);
  EXPECT_EQ(metrics["kite_collector_store_duration_seconds_bucket{le=\"0.005\"}"], 1);
}

class CollectorMetrics : public ::testing::Test {
 protected:
  CollectorMetrics() {
    service = std::make_shared<Service>(
        tool::ServiceOptions{.key = key,
                             .store = std::make_unique<FakeStore>(database),
                             .clock = [] { return now; },
                             .report = nullptr});
  }

  int handle(tool::ReceivedRequest request) {
    RecordedExchange exchange;
    service->handle(std::move(request), exchange);
    return exchange.reply ? exchange.reply->status : 0;
  }
  int get(const std::string& path) {
    return handle({.method = "GET", .target = path, .headers = {}, .body = ""});
  }
  int upload(const std::string& requestID = aRequestID) {
    return handle(aRequest(aBody({aCustomEvent()}), requestID));
  }
  MetricsText metrics() const { return MetricsText(service->metricsText()); }
  double requests(const std::string& outcome) const {
    return metrics()["kite_collector_requests_total{outcome=\"" + outcome + "\"}"];
  }
  double storeErrors(const std::string& operation) const {
    return metrics()["kite_collector_store_errors_total{operation=\"" + operation + "\"}"];
  }

  std::shared_ptr<FakeDatabase> database = std::make_shared<FakeDatabase>();
  std::shared_ptr<Service> service;
};

TEST_F(CollectorMetrics, countWhatWasAccepted) {
  const std::string json = aBody({aCustomEvent()});
  const auto request = aRequest(json);
  EXPECT_EQ(handle(request), 200);
  EXPECT_EQ(upload(anotherRequestID), 200);
  EXPECT_EQ(requests("accepted"), 2);
  EXPECT_EQ(metrics()["kite_collector_stored_events_total"], 1);
  EXPECT_EQ(metrics()["kite_collector_duplicate_events_total"], 1);
  EXPECT_EQ(metrics()["kite_collector_received_bytes_total"],
            2 * static_cast<double>(request.body.size()));
  EXPECT_EQ(metrics()["kite_collector_unpacked_bytes_total"], 2 * static_cast<double>(json.size()));
  EXPECT_EQ(metrics()["kite_collector_request_duration_seconds_count"], 2);
  EXPECT_EQ(metrics()["kite_collector_store_duration_seconds_count"], 2);
}

TEST_F(CollectorMetrics, countRefusalsByTheirErrorCode) {
  upload();
  EXPECT_EQ(upload(), 400);
  EXPECT_EQ(handle(aRequestOf("no gzip", anotherRequestID)), 422);
  EXPECT_EQ(get("/"), 404);
  auto forged = aRequest(aBody({aCustomEvent()}));
  header(forged, "Wicket-Signature").value = "00";
  EXPECT_EQ(handle(forged), 400);
  EXPECT_EQ(requests("refused"), 4);
  for (const std::string code : {"0", "102", "601", "603"}) {
    EXPECT_EQ(metrics()["kite_collector_refusals_total{error_code=\"" + code + "\"}"], 1) << code;
  }
  // Neither what is at no path nor what is not signed gets as far as the store.
  EXPECT_EQ(metrics()["kite_collector_request_duration_seconds_count"], 5);
  EXPECT_EQ(metrics()["kite_collector_store_duration_seconds_count"], 3);
}

TEST_F(CollectorMetrics, countUploadsWhoseStoreIsAway) {
  database->onStore = [](const tool::Accepted&) { throw tool::StoreAway("no answer in time"); };
  EXPECT_EQ(upload(), 503);
  EXPECT_EQ(requests("unavailable"), 1);
  EXPECT_EQ(requests("refused"), 0);
  EXPECT_EQ(storeErrors("upload"), 1);
  EXPECT_EQ(metrics()["kite_collector_store_duration_seconds_count"], 1);
}

TEST_F(CollectorMetrics, countUploadsWhoseStoreFailed) {
  database->onStore = [](const tool::Accepted&) { throw tool::StoreError("disk full"); };
  EXPECT_EQ(upload(), 500);
  EXPECT_EQ(requests("failed"), 1);
  EXPECT_EQ(storeErrors("upload"), 1);
}

TEST_F(CollectorMetrics, countWhatCouldNotBeRecorded) {
  database->onRecord = [] { throw tool::StoreError("disk full"); };
  EXPECT_EQ(upload(), 200);
  EXPECT_EQ(requests("accepted"), 1);
  EXPECT_EQ(storeErrors("upload"), 0);
  EXPECT_EQ(storeErrors("record"), 1);
}

TEST_F(CollectorMetrics, countFaultsApartFromWhatTheyAnswer) {
  for (const std::string fault : {"status:503", "status:200", "reset"}) {
    service->faults().add(*tool::parseFault(fault));
    upload();
  }
  EXPECT_EQ(requests("fault"), 3);
  EXPECT_EQ(requests("unavailable") + requests("accepted"), 0);
  EXPECT_EQ(storeErrors("upload"), 0);
}

TEST_F(CollectorMetrics, countChecksOfHealthWithoutTheirTimes) {
  EXPECT_EQ(get("/health"), 200);
  EXPECT_EQ(requests("health"), 1);
  EXPECT_EQ(metrics()["kite_collector_request_duration_seconds_count"], 0);
}

TEST_F(CollectorMetrics, tellNothingOfWhatWasSent) {
  upload();
  handle(aRequestOf("no gzip", anotherRequestID));
  const std::string text = service->metricsText();
  for (const std::string secret : {"client-1", anID, aRequestID, "Purchase", "trail-maps", "u1"}) {
    EXPECT_THAT(text, Not(HasSubstr(secret)));
  }
  EXPECT_THAT(text, Not(HasSubstr(key)));
}

/// A collector that serves its metrics.
class CollectorMetricsServer : public ::testing::Test {
 protected:
  CollectorMetricsServer() {
    const auto started = collector.start();
    EXPECT_TRUE(started) << started.error();
    address = *started;
  }

  Answer ask(const std::string& method, const std::string& target) const {
    const auto& url = address.metrics;
    PlainConnection connection(
        static_cast<std::uint16_t>(std::stoi(url.substr(url.rfind(':') + 1))));
    connection.send(requestText(method, target, {"Host: x", "Connection: close"}));
    return parseAnswer(connection.receiveAll());
  }

  TemporaryFolder folder;
  tool::Collector collector{{.key = key,
                             .database = folder.path() / "events.db",
                             .certificate = tool::SelfSignedFolder{folder.path() / "tls"},
                             .clock = [] { return now; },
                             .metrics = tool::MetricsAt{}}};
  tool::CollectorAddress address;
};

TEST_F(CollectorMetricsServer, tellsWhatTheCollectorDid) {
  Client client(address);
  EXPECT_EQ(client.post(aRequest(aBody({aCustomEvent()}))).status, 200);
  EXPECT_EQ(client.post(aRequest(aBody({aCustomEvent()}))).status, 400);
  const Answer answer = ask("GET", "/metrics");
  EXPECT_EQ(answer.status, 200);
  EXPECT_EQ(answer.headers.at("content-type"), "text/plain; version=0.0.4; charset=utf-8");
  const MetricsText metrics(answer.body);
  EXPECT_EQ(metrics["kite_collector_requests_total{outcome=\"accepted\"}"], 1);
  EXPECT_EQ(metrics["kite_collector_requests_total{outcome=\"refused\"}"], 1);
  EXPECT_EQ(metrics["kite_collector_stored_events_total"], 1);
}

TEST_F(CollectorMetricsServer, hasNothingElse) {
  EXPECT_THAT(address.metrics, StartsWith("http://127.0.0.1:"));
  EXPECT_EQ(ask("GET", "/").status, 404);
  EXPECT_EQ(ask("POST", "/metrics").status, 405);
}

TEST_F(CollectorMetricsServer, standsApartFromTheUploads) {
  EXPECT_EQ(Client(address).get("/metrics").status, 404);
}

TEST_F(CollectorMetricsServer, endsWithTheCollector) {
  collector.stop();
  EXPECT_THROW(ask("GET", "/metrics"), std::runtime_error);
}

}  // namespace
}  // namespace kite::test
