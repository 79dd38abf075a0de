#include "Collector/Service.h"

#include "CollectorRequests.h"
#include "RecordedExchange.h"
#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <fstream>

namespace kite::test {
namespace {

using tool::parseFault;
using tool::ReceivedRequest;
using tool::RequestReport;
using tool::Service;

class CollectorService : public ::testing::Test {
 protected:
  CollectorService() {
    auto store = tool::openStore(folder.path() / "events.db");
    service = std::make_shared<Service>(tool::ServiceOptions{
        .key = key,
        .store = *std::move(store),
        .clock = [] { return now; },
        .report = [this](const RequestReport& report) { reports.push_back(report); }});
  }

  RecordedExchange handle(ReceivedRequest request) {
    RecordedExchange exchange;
    service->handle(std::move(request), exchange);
    return exchange;
  }

  RecordedExchange handle(const std::string& method, const std::string& target) {
    return handle({.method = method, .target = target, .headers = {}, .body = ""});
  }

  RecordedExchange upload(const std::string& requestID = aRequestID) {
    return handle(aRequest(aBody({aCustomEvent()}), requestID));
  }

  void addFault(const std::string& text) { service->faults().add(*parseFault(text)); }

  TemporaryFolder folder;
  std::vector<RequestReport> reports;
  std::shared_ptr<Service> service;
};

TEST_F(CollectorService, takesUploadsIn) {
  EXPECT_EQ(upload().reply->status, 200);
  ASSERT_EQ(reports.size(), 1U);
  EXPECT_EQ(reports[0].newEvents, 1U);
}

TEST_F(CollectorService, isHealthy) {
  const auto exchange = handle("GET", "/health");
  EXPECT_EQ(exchange.reply->status, 200);
  EXPECT_EQ(reports[0].path, "/health");
}

TEST_F(CollectorService, knowsNoOtherPath) {
  EXPECT_EQ(handle("POST", "/v4/event").reply->status, 404);
  EXPECT_EQ(handle("GET", "/").reply->status, 404);
  EXPECT_EQ(reports[0].status, 404);
}

TEST_F(CollectorService, knowsNoOtherMethod) {
  const auto exchange = handle("GET", "/v4/events");
  EXPECT_EQ(exchange.reply->status, 405);
  EXPECT_EQ(exchange.reply->headers.back().name, "Allow");
  EXPECT_EQ(exchange.reply->headers.back().value, "POST");
  EXPECT_EQ(handle("PUT", "/v4/events").reply->status, 405);
  EXPECT_EQ(handle("POST", "/health").reply->status, 405);
}

TEST_F(CollectorService, findsItsPathBeforeAQuery) {
  EXPECT_EQ(handle("GET", "/health?x=1").reply->status, 200);
}

TEST_F(CollectorService, answersAStatusWithAnErrorBody) {
  addFault("status:503");
  const auto exchange = upload();
  EXPECT_EQ(exchange.reply->status, 503);
  EXPECT_EQ(exchange.reply->body, R"({"error_code":0,"message":"fault"})");
  EXPECT_EQ(reports[0].fault, "status:503");
}

TEST_F(CollectorService, answersAGoodStatusWithoutABody) {
  addFault("status:204");
  const auto exchange = upload();
  EXPECT_EQ(exchange.reply->status, 204);
  EXPECT_EQ(exchange.reply->body, "");
  EXPECT_EQ(reports[0].errorCode, std::nullopt);
}

TEST_F(CollectorService, answersTheBytesOfAFile) {
  const std::string file = folder.path() / "reply.html";
  std::ofstream(file, std::ios::binary) << "<html>\r\n\x01";
  addFault("body:" + file);
  const auto exchange = upload();
  EXPECT_EQ(exchange.reply->status, 200);
  EXPECT_EQ(exchange.reply->body, "<html>\r\n\x01");
}

TEST_F(CollectorService, answersARedirectThatKeepsTheMethod) {
  addFault("redirect:https://127.0.0.1:1/v4/events");
  const auto exchange = upload();
  EXPECT_EQ(exchange.reply->status, 307);
  ASSERT_EQ(exchange.reply->headers.size(), 1U);
  EXPECT_EQ(exchange.reply->headers[0].name, "Location");
  EXPECT_EQ(exchange.reply->headers[0].value, "https://127.0.0.1:1/v4/events");
}

TEST_F(CollectorService, truncatesAReply) {
  addFault("truncate");
  const auto exchange = upload();
  EXPECT_EQ(exchange.reply->status, 200);
  EXPECT_TRUE(exchange.reply->isTruncated);
}

TEST_F(CollectorService, resetsAConnection) {
  addFault("reset");
  const auto exchange = upload();
  EXPECT_TRUE(exchange.isReset);
  EXPECT_FALSE(exchange.reply);
  EXPECT_EQ(reports[0].status, 0);
  EXPECT_EQ(reports[0].fault, "reset");
}

TEST_F(CollectorService, handlesADelayedRequestAfterwards) {
  addFault("delay:1500");
  auto exchange = upload();
  EXPECT_EQ(exchange.delay, std::chrono::milliseconds(1500));
  EXPECT_FALSE(exchange.reply);
  EXPECT_TRUE(reports.empty());

  exchange.delayed(exchange);
  EXPECT_EQ(exchange.reply->status, 200);
  EXPECT_EQ(reports[0].newEvents, 1U);
  EXPECT_EQ(reports[0].fault, "delay:1500");
}

TEST_F(CollectorService, storesNothingThatAFaultStruck) {
  const std::string file = folder.path() / "reply";
  std::ofstream{file};
  for (const std::string fault :
       {"status:200", "status:503", "redirect:https://h", "truncate", "reset"}) {
    addFault(fault);
  }
  addFault("body:" + file);
  for (int fault = 0; fault < 6; ++fault) upload();
  EXPECT_EQ(service->metrics().statistics().newEvents, 0U);
  const auto spared = upload();  // the same request id is still good
  EXPECT_EQ(spared.reply->status, 200);
  EXPECT_EQ(service->metrics().statistics().newEvents, 1U);
}

TEST_F(CollectorService, usesFaultsUpOnUploadsOnly) {
  addFault("status:503x2");
  handle("GET", "/health");
  handle("GET", "/v4/events");
  handle("POST", "/other");
  EXPECT_EQ(upload().reply->status, 503);
  EXPECT_EQ(upload().reply->status, 503);
  EXPECT_EQ(upload().reply->status, 200);
}

TEST_F(CollectorService, countsWhatItDid) {
  addFault("status:503");
  upload();
  upload();
  upload(anotherRequestID);
  upload();  // a replay
  handle("GET", "/health");
  const auto statistics = service->metrics().statistics();
  EXPECT_EQ(statistics.requests, 5U);
  EXPECT_EQ(statistics.accepted, 2U);
  EXPECT_EQ(statistics.refused, 1U);
  EXPECT_EQ(statistics.faults, 1U);
  EXPECT_EQ(statistics.newEvents, 1U);
  EXPECT_EQ(statistics.duplicates, 1U);
}

}  // namespace
}  // namespace kite::test
