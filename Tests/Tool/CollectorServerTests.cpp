#include "Collector/Collector.h"

#include "Collector/Server/Certificates.h"
#include "CollectorClient.h"
#include "CollectorDatabase.h"
#include "CollectorRequests.h"
#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <fstream>
#include <future>

namespace kite::test {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;
using tool::Collector;
using tool::CollectorAddress;
using tool::parseFault;
using tool::ReceivedRequest;
using tool::SelfSignedFolder;

/// A request that a fault can strike.
const std::string unsignedUpload =
    "POST /v4/events HTTP/1.1\r\nHost: localhost\r\nContent-Length: 1\r\n\r\nx";

class CollectorServer : public ::testing::Test {
 protected:
  tool::CollectorOptions options() {
    return {.key = key,
            .database = file,
            .certificate = SelfSignedFolder{folder.path() / "tls"},
            .clock = [] { return now; }};
  }

  void start() {
    auto started = collector.start();
    ASSERT_TRUE(started) << started.error();
    address = *started;
  }

  void addFault(const std::string& text) { collector.addFault(*parseFault(text)); }

  static ReceivedRequest anUpload(const std::string& requestID = aRequestID) {
    return aRequest(aBody({aCustomEvent()}), requestID);
  }

  TemporaryFolder folder;
  const std::string file = folder.path() / "events.db";
  Collector collector{options()};
  CollectorAddress address;
};

TEST_F(CollectorServer, tellsWhereItIs) {
  start();
  EXPECT_THAT(address.url, StartsWith("https://127.0.0.1:"));
  EXPECT_THAT(address.url, ::testing::EndsWith("/v4/events"));
  EXPECT_EQ(address.ca, (folder.path() / "tls/ca.pem").string());
}

TEST_F(CollectorServer, answersOverTLS) {
  start();
  const Fetched fetched = Client(address).get("/health");
  EXPECT_EQ(fetched.result, CURLE_OK);
  EXPECT_EQ(fetched.status, 200);
}

TEST_F(CollectorServer, isKnownAsLocalhostToo) {
  start();
  address.url = replaced(address.url, "127.0.0.1", "localhost");
  EXPECT_EQ(Client(address).get("/health").result, CURLE_OK);
}

TEST_F(CollectorServer, showsTheCertificateThatItIsGiven) {
  const auto given = tool::provideCertificate(SelfSignedFolder{folder.path() / "given"});
  ASSERT_TRUE(given);
  auto other = options();
  other.certificate = given->files;
  Collector shown(std::move(other));
  const auto started = shown.start();
  ASSERT_TRUE(started);
  EXPECT_EQ(started->ca, "");
  EXPECT_EQ(Client(CollectorAddress{.url = started->url, .ca = given->ca}).get("/health").status,
            200);
}

TEST_F(CollectorServer, isNotTrustedWithoutItsCA) {
  start();
  address.ca = "/etc/ssl/certs/ca-certificates.crt";
  EXPECT_NE(Client(address).get("/health").result, CURLE_OK);
}

TEST_F(CollectorServer, speaksNothingOlderThanTLS12) {
  start();
  Client client(address);
  client.allow(CURL_SSLVERSION_TLSv1_1, CURL_SSLVERSION_MAX_TLSv1_1);
  EXPECT_EQ(client.get("/health").result, CURLE_SSL_CONNECT_ERROR);
  client.allow(CURL_SSLVERSION_TLSv1_2, CURL_SSLVERSION_MAX_TLSv1_2);
  EXPECT_EQ(client.get("/health").result, CURLE_OK);
}

TEST_F(CollectorServer, storesAnUploadBeforeItAnswers) {
  start();
  const Fetched fetched = Client(address).post(anUpload());
  EXPECT_EQ(fetched.status, 200);
  EXPECT_EQ(fetched.body, R"({"delta":0.25,"last_event_timestamp":1765432100.5})");
  EXPECT_EQ(query(file, "SELECT id FROM events"), std::string(anID) + "\n");
}

TEST_F(CollectorServer, answersSeveralRequestsOnOneConnection) {
  start();
  Client client(address);
  EXPECT_EQ(client.post(anUpload()).status, 200);
  EXPECT_EQ(client.post(anUpload(anotherRequestID)).status, 200);
  EXPECT_EQ(client.post(anUpload()).status, 400);
}

TEST_F(CollectorServer, tellsTheReasonOfARefusal) {
  start();
  const Fetched fetched = Client(address).post(aRequestOf("no gzip"));
  EXPECT_EQ(fetched.status, 422);
  EXPECT_EQ(fetched.body, R"({"error_code":102,"message":"the body: not a gzip stream"})");
}

TEST_F(CollectorServer, refusesABodyBeyondItsLimitByItself) {
  start();
  const auto beyond = Client(address).post(aRequestOf(std::string(16 * 1024 * 1024 + 1, 'x')));
  EXPECT_EQ(beyond.status, 422);
  EXPECT_EQ(Client(address).get("/health").status, 200);
}

TEST_F(CollectorServer, livesOnAfterAHugeBody) {
  start();
  const auto huge = Client(address).post(aRequestOf(std::string(33 * 1024 * 1024, 'x')));
  EXPECT_NE(huge.status, 200);
  EXPECT_EQ(Client(address).get("/health").status, 200);
}

TEST_F(CollectorServer, knowsNoOtherPathOrMethod) {
  start();
  Client client(address);
  EXPECT_EQ(client.get("/v4/event").status, 404);
  EXPECT_EQ(client.get("/v4/events").status, 405);
}

TEST_F(CollectorServer, resetsAConnection) {
  start();
  addFault("reset");
  Client client(address);
  const Fetched fetched = client.post(anUpload());
  EXPECT_EQ(fetched.result, CURLE_RECV_ERROR);
  EXPECT_THAT(fetched.error, HasSubstr("Connection reset by peer"));
  EXPECT_EQ(client.post(anUpload()).status, 200);
}

TEST_F(CollectorServer, truncatesAReply) {
  start();
  addFault("truncate");
  Client client(address);
  const Fetched fetched = client.post(anUpload());
  EXPECT_EQ(fetched.result, CURLE_PARTIAL_FILE);
  EXPECT_EQ(fetched.status, 200);
  EXPECT_EQ(client.post(anUpload()).status, 200);
}

TEST_F(CollectorServer, answersAStatus) {
  start();
  addFault("status:503");
  const Fetched fetched = Client(address).post(anUpload());
  EXPECT_EQ(fetched.status, 503);
  EXPECT_EQ(fetched.body, R"({"error_code":0,"message":"fault"})");
}

TEST_F(CollectorServer, answersAStatusWithoutABody) {
  start();
  addFault("status:204");
  Client client(address);
  EXPECT_EQ(client.post(anUpload()).status, 204);
  EXPECT_EQ(client.post(anUpload()).status, 200);
}

TEST_F(CollectorServer, redirects) {
  start();
  addFault("redirect:https://127.0.0.1:1/v4/events");
  const Fetched fetched = Client(address).post(anUpload());
  EXPECT_EQ(fetched.status, 307);
  EXPECT_EQ(fetched.location, "https://127.0.0.1:1/v4/events");
}

TEST_F(CollectorServer, answersTheBytesOfAFile) {
  const std::string reply = folder.path() / "reply";
  std::ofstream(reply, std::ios::binary) << std::string("a\0b", 3);
  start();
  addFault("body:" + reply);
  EXPECT_EQ(Client(address).post(anUpload()).body, std::string("a\0b", 3));
}

TEST_F(CollectorServer, delaysARequestAndThenHandlesIt) {
  start();
  addFault("delay:200");
  const Fetched fetched = Client(address).post(anUpload());
  EXPECT_GE(fetched.microseconds, 200'000);
  EXPECT_EQ(fetched.status, 200);
}

TEST_F(CollectorServer, answersOthersWhileOneIsDelayed) {
  start();
  addFault("delay:3600000");
  Client delayed(address);
  delayed.send(unsignedUpload);
  Client other(address);
  ASSERT_EQ(other.get("/health").status, 200);  // so the first one was read before
  EXPECT_EQ(other.post(anUpload()).status, 200);
}

TEST_F(CollectorServer, dropsADelayedRequestWhenItStops) {
  start();
  addFault("delay:3600000");
  Client delayed(address);
  delayed.send(unsignedUpload);
  ASSERT_EQ(Client(address).get("/health").status, 200);
  collector.stop();
  EXPECT_EQ(collector.statistics().requests, 1U);
}

TEST_F(CollectorServer, survivesADelayedRequestWhoseClientLeft) {
  start();
  addFault("delay:50");
  {
    Client delayed(address);
    delayed.send(unsignedUpload);
    ASSERT_EQ(Client(address).get("/health").status, 200);
  }
  addFault("delay:100");
  EXPECT_EQ(Client(address).post(anUpload()).status, 200);
}

TEST_F(CollectorServer, stopsInTheMiddleOfARequest) {
  start();
  Client half(address);
  half.send(unsignedUpload.substr(0, 40));
  ASSERT_EQ(Client(address).get("/health").status, 200);
  collector.stop();
}

TEST_F(CollectorServer, survivesWhatIsNotHTTP) {
  start();
  Client strange(address);
  strange.send("\x01\x02 nonsense\r\n\r\n");
  EXPECT_EQ(Client(address).get("/health").status, 200);
}

TEST_F(CollectorServer, servesManyConnectionsAtOnce) {
  start();
  std::vector<std::unique_ptr<Client>> clients;
  for (int count = 0; count < 200; ++count) clients.push_back(std::make_unique<Client>(address));
  for (int round = 0; round < 2; ++round) {
    for (const auto& client : clients) ASSERT_EQ(client->get("/health").status, 200);
  }
}

TEST_F(CollectorServer, survivesClientsThatSpeakNoTLS) {
  start();
  CollectorAddress plain = address;
  plain.url = replaced(plain.url, "https://", "http://");
  EXPECT_NE(Client(plain).get("/health").status, 200);
  EXPECT_EQ(Client(address).get("/health").status, 200);
}

TEST_F(CollectorServer, reportsBeforeItAnswers) {
  std::promise<std::string> line;
  auto reporting = options();
  reporting.onRequest = [&line](const tool::RequestReport& report) {
    line.set_value(jsonLine(report));
  };
  Collector other(std::move(reporting));
  const auto started = other.start();
  ASSERT_TRUE(started);
  Client(*started).get("/health");
  EXPECT_EQ(line.get_future().get(),
            R"({"event":"request","method":"GET","path":"/health","status":200,)"
            R"("events":0,"new":0,"duplicates":0})");
}

TEST_F(CollectorServer, canBeStoppedTwiceOrWithoutAStart) {
  collector.stop();
  start();
  collector.stop();
  collector.stop();
  EXPECT_EQ(Client(address).get("/health").result, CURLE_COULDNT_CONNECT);
}

TEST_F(CollectorServer, doesNotStartOnAPortThatIsTaken) {
  start();
  auto second = options();
  second.port =
      static_cast<std::uint16_t>(std::stoi(address.url.substr(address.url.rfind(':') + 1)));
  const auto started = Collector(std::move(second)).start();
  ASSERT_FALSE(started);
  EXPECT_THAT(started.error(), StartsWith("cannot listen on 127.0.0.1:"));
}

TEST_F(CollectorServer, doesNotStartWithoutItsCertificate) {
  auto broken = options();
  broken.certificate = tool::CertificateFiles{.certificate = "absent.pem", .key = "absent.key"};
  const auto started = Collector(std::move(broken)).start();
  ASSERT_FALSE(started);
  EXPECT_EQ(started.error(), "cannot use the certificate absent.pem: No such file or directory");
}

TEST_F(CollectorServer, doesNotStartWithTheKeyOfAnotherCertificate) {
  const auto filesIn = [this](const char* name) {
    return tool::provideCertificate(SelfSignedFolder{folder.path() / name})->files;
  };
  auto broken = options();
  broken.certificate = tool::CertificateFiles{.certificate = filesIn("mine").certificate,
                                              .key = filesIn("other").key};
  const auto started = Collector(std::move(broken)).start();
  ASSERT_FALSE(started);
  EXPECT_THAT(started.error(), ::testing::EndsWith("other/server.key: key values mismatch"));
}

TEST_F(CollectorServer, doesNotStartWithoutTheFileOfAFault) {
  auto broken = options();
  broken.faults.push_back(*parseFault("body:absent.html"));
  const auto started = Collector(std::move(broken)).start();
  ASSERT_FALSE(started);
  EXPECT_EQ(started.error(), "cannot read absent.html: No such file or directory");
}

}  // namespace
}  // namespace kite::test
