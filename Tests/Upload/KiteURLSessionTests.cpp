#include <Kite/KiteURLSession.h>

#include "Support/FakeURLSession.h"

#include <gmock/gmock.h>

namespace kite::test {
namespace {

TEST(KiteURLSessionTests, theLiveOneHandsRequestsToThePlatformsSession) {
  const FakeURLSession network(answers(201, "reply"));
  const auto session = KiteURLSession::live(network.urlSession());
  std::optional<Answer> answer;
  const auto task = session.dataTask(
      {.url = *URL::parse("https://a.test"), .method = "POST", .headerFields = {}, .body = nullptr},
      [&](auto body, auto response, auto error) {
        answer = Answer{body, response, error};
      });
  EXPECT_TRUE(network.requests().empty());
  task->resume();
  ASSERT_EQ(network.requests().size(), 1U);
  EXPECT_EQ(network.requests()[0].method, "POST");
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->body, Data{"reply"});
  EXPECT_EQ(answer->response->statusCode, 201);
}

}  // namespace
}  // namespace kite::test
