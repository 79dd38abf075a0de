#include <Kite/Linux/LinuxPlatform.h>

#include "Support/FakeURLSession.h"
#include "Support/Outcomes.h"
#include "Support/TLSTestServer.h"
#include "Support/TestCertificates.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kite::test {
namespace {

// A network in which "/fails" fails, and any other path is answered with 202 and the request's
// body.
struct InMemory {
  FakeURLSession network{[](const URLRequest& request) {
    return request.url.absoluteString().ends_with("/fails")
               ? fails("refused")(request)
               : answers(202, request.body ? request.body->bytes : "")(request);
  }};
  std::shared_ptr<URLSession> session = network.urlSession();
  URL url(const std::string& path) const { return *URL::parse("https://fake.test" + path); }
};

struct OverTLS {
  TestAuthority authority;
  CAFile caFile{authority};
  TLSTestServer server{authority.issue(), [](const ReceivedRequest& request) {
                         return request.path == "/fails" ? resets() : replies(202, request.body);
                       }};
  std::shared_ptr<URLSession> session = Linux::curlSession(caFile.path());
  URL url(const std::string& path) const { return server.url(path); }
};

template <class Setting>
class URLSessionContract : public testing::Test {
 protected:
  URLRequest post(const std::string& path, std::string body) const {
    return {.url = setting.url(path),
            .timeoutSeconds = 10,
            .method = "POST",
            .headerFields = {},
            .body = std::make_shared<const Data>(Data{std::move(body)})};
  }

  Setting setting;
};

using Settings = testing::Types<InMemory, OverTLS>;
TYPED_TEST_SUITE(URLSessionContract, Settings);

TYPED_TEST(URLSessionContract, answersWithBodyStatusAndURL) {
  Outcomes outcomes;
  const auto task =
      this->setting.session->dataTask(this->post("/a", "body"), outcomes.completion());
  task->resume();
  const auto outcome = outcomes.await();
  EXPECT_EQ(outcome.body, Data{"body"});
  ASSERT_TRUE(outcome.response);
  EXPECT_EQ(outcome.response->statusCode, 202);
  EXPECT_EQ(outcome.response->url, this->setting.url("/a"));
  EXPECT_FALSE(outcome.error);
}

TYPED_TEST(URLSessionContract, failsWithAnErrorAndNothingElse) {
  Outcomes outcomes;
  this->setting.session->dataTask(this->post("/fails", ""), outcomes.completion())->resume();
  const auto outcome = outcomes.await();
  ASSERT_TRUE(outcome.error);
  EXPECT_NE(outcome.error->description, "");
  EXPECT_FALSE(outcome.body);
  EXPECT_FALSE(outcome.response);
}

TYPED_TEST(URLSessionContract, sendsNothingBeforeItIsResumed) {
  Outcomes outcomes;
  const auto unsent = this->setting.session->dataTask(this->post("/a", "1"), outcomes.completion());
  this->setting.session->dataTask(this->post("/a", "2"), outcomes.completion())->resume();
  EXPECT_EQ(outcomes.await().body, Data{"2"});
  EXPECT_EQ(outcomes.count(), 1u);
}

TYPED_TEST(URLSessionContract, completesOnceHoweverOftenItIsResumed) {
  Outcomes outcomes;
  const auto task = this->setting.session->dataTask(this->post("/a", "1"), outcomes.completion());
  task->resume();
  task->resume();
  outcomes.await();
  task->resume();
  this->setting.session->dataTask(this->post("/a", "2"), outcomes.completion())->resume();
  EXPECT_EQ(outcomes.await().body, Data{"2"});
  EXPECT_EQ(outcomes.count(), 2u);
}

TYPED_TEST(URLSessionContract, completesWhenTheTaskIsLetGoAtOnce) {
  Outcomes outcomes;
  this->setting.session->dataTask(this->post("/a", "x"), outcomes.completion())->resume();
  EXPECT_EQ(outcomes.await().body, Data{"x"});
}

TYPED_TEST(URLSessionContract, givesEachRequestItsOwnAnswer) {
  std::vector<Outcomes> outcomes(8);
  for (std::size_t i = 0; i < outcomes.size(); ++i)
    this->setting.session->dataTask(this->post("/a", std::to_string(i)), outcomes[i].completion())
        ->resume();
  for (std::size_t i = 0; i < outcomes.size(); ++i)
    EXPECT_EQ(outcomes[i].await().body, Data{std::to_string(i)});
}

TYPED_TEST(URLSessionContract, letsACompletionSendTheNextRequest) {
  Outcomes outcomes;
  auto* const session = this->setting.session.get();
  const auto next = this->post("/a", "next");
  session
      ->dataTask(this->post("/fails", ""),
                 [&, session](std::optional<Data>, std::optional<URLResponse>,
                              std::optional<TransportError>) {
                   session->dataTask(next, outcomes.completion())->resume();
                 })
      ->resume();
  EXPECT_EQ(outcomes.await().body, Data{"next"});
}

TEST(FakeURLSession, recordsWholeRequests) {
  FakeURLSession network(answers(200));
  const auto body = std::make_shared<const Data>(Data{"bytes"});
  network.session()
      .dataTask({.url = *URL::parse("https://fake.test/a"),
                 .timeoutSeconds = 7,
                 .method = "POST",
                 .headerFields = {{"Name", "value"}},
                 .body = body},
                [](auto, auto, auto) {})
      ->resume();
  ASSERT_EQ(network.requests().size(), 1u);
  const auto request = network.requests().front();
  EXPECT_EQ(request.url.absoluteString(), "https://fake.test/a");
  EXPECT_EQ(request.timeoutSeconds, 7);
  EXPECT_EQ(request.method, "POST");
  EXPECT_EQ(request.headerFields, (HeaderFields{{"Name", "value"}}));
  EXPECT_EQ(request.body, body);
}

TEST(FakeURLSession, holdsACompletionUntilItIsAnswered) {
  FakeURLSession network;
  network.hold();
  std::vector<int> statuses;
  const auto note = [&statuses](auto, std::optional<URLResponse> response, auto) {
    statuses.push_back(response ? response->statusCode.value_or(0) : -1);
  };
  for (const char* const url : {"https://fake.test/1", "https://fake.test/2"})
    network.session()
        .dataTask({.url = *URL::parse(url), .headerFields = {}, .body = {}}, note)
        ->resume();
  EXPECT_EQ(network.awaitRequest().url.absoluteString(), "https://fake.test/1");
  EXPECT_EQ(network.awaitRequest().url.absoluteString(), "https://fake.test/2");
  EXPECT_EQ(network.held(), 2u);
  EXPECT_TRUE(statuses.empty());
  network.answer(answers(201));
  network.answer(fails());
  EXPECT_EQ(statuses, (std::vector{201, -1}));
}

}  // namespace
}  // namespace kite::test
