#include "Collector/Collector.h"

#include "CollectorDatabase.h"
#include "CollectorRequests.h"
#include "Support/TemporaryFolder.h"

#include <curl/curl.h>
#include <gmock/gmock.h>

#include <array>
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

/// What libcurl made of one request.
struct Fetched {
  CURLcode result = CURLE_OK;
  std::string error;
  long status = 0;
  std::string body;
  std::string location;
  std::int64_t microseconds = 0;
};

/// One libcurl handle; its requests share connections.
class Client {
 public:
  explicit Client(CollectorAddress address)
      : _address(std::move(address)), _curl(curl_easy_init()) {}
  ~Client() { curl_easy_cleanup(_curl); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  Fetched get(const std::string& path) {
    curl_easy_reset(_curl);
    return fetch(root() + path);
  }

  /// Sends the request as it is but for its host, and signs it for that.
  Fetched post(ReceivedRequest request) {
    curl_easy_reset(_curl);
    header(request, "Host").value = root().substr(std::string("https://").size());
    sign(request);
    curl_slist* headers = curl_slist_append(nullptr, "Expect:");
    for (const auto& [name, value] : request.headers) {
      headers = curl_slist_append(headers, (name + ": " + value).c_str());
    }
    curl_easy_setopt(_curl, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(_curl, CURLOPT_POSTFIELDSIZE_LARGE,
                     static_cast<curl_off_t>(request.body.size()));
    curl_easy_setopt(_curl, CURLOPT_POSTFIELDS, request.body.data());
    Fetched fetched = fetch(_address.url);
    curl_slist_free_all(headers);
    return fetched;
  }

  /// Connects and sends these bytes and nothing more; the connection stays.
  void send(const std::string& bytes) {
    curl_easy_reset(_curl);
    curl_easy_setopt(_curl, CURLOPT_CONNECT_ONLY, 1L);
    ASSERT_EQ(fetch(_address.url).result, CURLE_OK);
    std::size_t sent = 0;
    ASSERT_EQ(curl_easy_send(_curl, bytes.data(), bytes.size(), &sent), CURLE_OK);
    ASSERT_EQ(sent, bytes.size());
  }

  void allow(long least, long most) { _version = least | most; }

 private:
  std::string root() const { return _address.url.substr(0, _address.url.find("/v4/events")); }

  Fetched fetch(const std::string& url) {
    Fetched fetched;
    curl_easy_setopt(_curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(_curl, CURLOPT_CAINFO, _address.ca.c_str());
    curl_easy_setopt(_curl, CURLOPT_SSLVERSION, _version);
    curl_easy_setopt(_curl, CURLOPT_SSL_CIPHER_LIST, "ALL:@SECLEVEL=0");
    curl_easy_setopt(_curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(_curl, CURLOPT_NOPROXY, "*");
    curl_easy_setopt(_curl, CURLOPT_WRITEDATA, &fetched.body);
    curl_easy_setopt(_curl, CURLOPT_WRITEFUNCTION, append);
    std::array<char, CURL_ERROR_SIZE> error{};
    curl_easy_setopt(_curl, CURLOPT_ERRORBUFFER, error.data());
    fetched.result = curl_easy_perform(_curl);
    curl_easy_setopt(_curl, CURLOPT_ERRORBUFFER, nullptr);
    fetched.error = error.data();
    char* location = nullptr;
    curl_off_t time = 0;
    curl_easy_getinfo(_curl, CURLINFO_RESPONSE_CODE, &fetched.status);
    curl_easy_getinfo(_curl, CURLINFO_REDIRECT_URL, &location);
    curl_easy_getinfo(_curl, CURLINFO_TOTAL_TIME_T, &time);
    fetched.location = location ? location : "";
    fetched.microseconds = time;
    return fetched;
  }

  static std::size_t append(char* bytes, std::size_t size, std::size_t count, void* out) {
    static_cast<std::string*>(out)->append(bytes, size * count);
    return size * count;
  }

  CollectorAddress _address;
  CURL* _curl;
  long _version = CURL_SSLVERSION_TLSv1_2;
};

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
  EXPECT_EQ(started.error(), "cannot use the certificate absent.pem");
}

TEST_F(CollectorServer, doesNotStartWithoutTheFileOfAFault) {
  auto broken = options();
  broken.faults.push_back(*parseFault("body:absent.html"));
  const auto started = Collector(std::move(broken)).start();
  ASSERT_FALSE(started);
  EXPECT_EQ(started.error(), "cannot read absent.html");
}

}  // namespace
}  // namespace kite::test
