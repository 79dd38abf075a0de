#include "Inspector/PageFiles.h"
#include "Tool/Inspector/InspectedCollector.h"

#include <gmock/gmock.h>
#include <sys/resource.h>

#include <algorithm>
#include <filesystem>

namespace kite::test {
namespace {

using ::testing::HasSubstr;

class InspectorServer : public InspectedCollector {
 protected:
  /// The headers of a stranger who knows the token, but for one.
  int statusWith(const std::string& header) const {
    PlainHeaders headers = ownHeaders();
    if (header.starts_with("Host: ")) headers.erase(headers.begin());
    headers.push_back(header);
    return ask("GET", "/api/summary", headers).status;
  }
};

TEST_F(InspectorServer, isWhereItsAddressSays) {
  const auto answer = ask("GET", "/?token=" + token,
                          {"Host: 127.0.0.1:" + std::to_string(port), "Connection: close"});
  EXPECT_EQ(answer.status, 303);
  EXPECT_EQ(answer.headers.at("location"), "/");
  const std::string cookie = answer.headers.at("set-cookie");
  EXPECT_EQ(ask("GET", "/api/summary",
                {"Host: 127.0.0.1:" + std::to_string(port), "Connection: close",
                 "Cookie: " + cookie.substr(0, cookie.find(';'))})
                .status,
            200);
}

TEST_F(InspectorServer, keepsStrangersOut) {
  EXPECT_EQ(
      ask("GET", "/api/events", {"Host: 127.0.0.1:" + std::to_string(port), "Connection: close"})
          .status,
      401);
  EXPECT_EQ(
      ask("GET", "/", {"Host: 127.0.0.1:" + std::to_string(port), "Connection: close"}).status,
      401);
  EXPECT_EQ(statusWith("Host: evil.example:" + std::to_string(port)), 403);
  EXPECT_EQ(statusWith("Origin: http://evil.example"), 403);
  EXPECT_EQ(statusWith("Sec-Fetch-Site: cross-site"), 403);
  EXPECT_EQ(ask("GET", "http://evil.example/api/summary").status, 404);
}

TEST_F(InspectorServer, letsNoPageDoMoreThanItMust) {
  for (const std::string target : {"/api/summary", "/nowhere", "/api/events?query=a:b"}) {
    const auto answer = ask("GET", target);
    EXPECT_THAT(answer.headers.at("content-security-policy"), HasSubstr("default-src 'none'"));
    EXPECT_EQ(answer.headers.at("x-content-type-options"), "nosniff");
    EXPECT_EQ(answer.headers.at("referrer-policy"), "no-referrer");
    EXPECT_EQ(answer.headers.at("cache-control"), "no-store");
    EXPECT_FALSE(answer.headers.contains("access-control-allow-origin"));
  }
}

TEST_F(InspectorServer, servesTheFilesThatAreBuiltIn) {
  for (const tool::PageFile& file : tool::embeddedFiles()) {
    const auto answer = ask("GET", std::string(file.path));
    EXPECT_EQ(answer.status, 200) << file.path;
    EXPECT_EQ(answer.body, file.bytes) << file.path;
    EXPECT_EQ(ask("POST", std::string(file.path), "x").status, 405) << file.path;
  }
  EXPECT_EQ(ask("GET", "/../Inspector.cpp").status, 404);
}

TEST_F(InspectorServer, knowsNoOtherPathOrMethod) {
  EXPECT_EQ(errorOf(ask("GET", "/api/nothing"), 404), "there is nothing at this path");
  EXPECT_EQ(errorOf(ask("GET", "/api/events/"), 404), "there is nothing at this path");
  EXPECT_EQ(errorOf(ask("PUT", "/api/events"), 405), "this path does not take PUT");
  EXPECT_EQ(errorOf(ask("GET", "/api/events/absent"), 404), "there is no such event");
  EXPECT_EQ(errorOf(ask("GET", "/api/requests/1x"), 404), "there is no such request");
}

TEST_F(InspectorServer, boundsWhatItIsAsked) {
  EXPECT_EQ(ask("GET", "/api/events?x=" + std::string(9000, 'a')).status, 414);
  EXPECT_EQ(ask("GET", "/api/events?query=" + std::string(5000, 'a')).status, 400);
  EXPECT_GE(ask("GET", "/api/events?x=" + std::string(80'000, 'a')).status, 400);
  EXPECT_EQ(ask("POST", "/api/expect", std::string(70'000, ' ')).status, 413);
  EXPECT_EQ(ask("GET", "/api/events?a=%zz").status, 400);
  for (const std::string member : {"limit=0", "limit=1001", "limit=x", "after=-1", "before=1.5"}) {
    EXPECT_EQ(ask("GET", "/api/events?" + member).status, 400) << member;
  }
  EXPECT_EQ(ask("GET", "/api/summary").status, 200);
}

TEST_F(InspectorServer, survivesWhatIsNotHTTP) {
  PlainConnection strange(port);
  strange.send("\x01\x02 nonsense\r\n\r\n");
  strange.receiveAll();
  EXPECT_EQ(ask("GET", "/api/summary").status, 200);
}

TEST_F(InspectorServer, letsNoMoreThanItsNumberOfConnectionsIn) {
  std::vector<std::unique_ptr<PlainConnection>> idle;
  for (int count = 0; count < 64; ++count) idle.push_back(std::make_unique<PlainConnection>(port));
  PlainConnection late(port);
  late.send(requestText("GET", "/api/summary", ownHeaders()));
  EXPECT_FALSE(late.hears(300));
  idle.pop_back();
  EXPECT_EQ(parseAnswer(late.receiveAll()).status, 200);
}

TEST_F(InspectorServer, keepsNobodyWaitingWhoUploads) {
  std::vector<std::unique_ptr<PlainConnection>> idle;
  for (int count = 0; count < 80; ++count) idle.push_back(std::make_unique<PlainConnection>(port));
  EXPECT_EQ(upload({aCustomEvent()}).status, 200);
}

TEST_F(InspectorServer, leavesTheProcessorToTheIntake) {
  get("/api/summary");  // its thread runs
  std::vector<int> nicenesses;
  for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
    const auto id = static_cast<id_t>(std::stoul(thread.path().filename()));
    nicenesses.push_back(::getpriority(PRIO_PROCESS, id));
  }
  const int ours = ::getpriority(PRIO_PROCESS, 0);
  EXPECT_GE(std::ranges::count(nicenesses, std::min(ours + 10, 19)), 1);
  EXPECT_GE(std::ranges::count(nicenesses, ours), 2);  // the intake's, and the test's own
}

TEST_F(InspectorServer, doesNotStartOnAPortThatIsTaken) {
  tool::Collector second({.key = key,
                          .database = folder.path() / "other.db",
                          .certificate = tool::SelfSignedFolder{folder.path() / "tls"},
                          .inspect = tool::InspectAt{.host = "127.0.0.1", .port = port}});
  const auto started = second.start();
  ASSERT_FALSE(started);
  EXPECT_THAT(started.error(), HasSubstr("cannot listen on 127.0.0.1:"));
}

}  // namespace
}  // namespace kite::test
