#include "Tool/Inspector/InspectedCollector.h"

#include <gmock/gmock.h>

namespace kite::test {
namespace {

class InspectorExpectation : public InspectedCollector {
 protected:
  Looked expect(const std::string& body) { return json(ask("POST", "/api/expect", body)); }
};

TEST_F(InspectorExpectation, isMetByWhatIsStoredAlready) {
  upload({anAction("buy", 1), anAction("buy", 2)});
  const Looked answer = expect(R"({"match":"name:buy","count":2,"within":3600})");
  EXPECT_EQ(*answer["ok"].value().boolean(), true);
  EXPECT_EQ(answer["matched"].integer(), 2);
  EXPECT_EQ(answer["count"].integer(), 2);
  EXPECT_EQ(answer["nearest"].size(), 0U);
}

TEST_F(InspectorExpectation, isAnsweredAsSoonAsItIsMet) {
  PlainConnection waiting(port);
  waiting.send(requestText("POST", "/api/expect", ownHeaders(),
                           R"({"match":"name:buy","count":2,"within":3600})"));
  waiting.receiveUntil("\r\n\r\n");
  upload({anAction("buy", 1), anAction("look", 2)});
  upload({anAction("buy", 3)});
  EXPECT_THAT(waiting.receiveAll(), ::testing::HasSubstr(R"({"ok":true,"matched":2,)"));
}

TEST_F(InspectorExpectation, saysWhatCameNearestWhenItIsNotMet) {
  upload({anEvent("Orders", "{}"), anAction("bought", 1, R"({"price":9.5})")});
  const Looked answer =
      expect(R"({"match":"type:UserAction name:buy data.action_info.price:>9","within":0})");
  EXPECT_EQ(*answer["ok"].value().boolean(), false);
  EXPECT_EQ(answer["matched"].integer(), 0);
  ASSERT_EQ(answer["nearest"].size(), 2U);
  EXPECT_EQ(answer["nearest"][0]["event"]["name"].text(), "bought");
  EXPECT_EQ(answer["nearest"][0]["differs"][0].text(), R"(name is "bought", wanted "buy")");
  EXPECT_EQ(answer["nearest"][1]["differs"].size(), 3U);
}

TEST_F(InspectorExpectation, waitsUntilItsDeadline) {
  const Looked answer = expect(R"({"match":"name:buy","within":0.2})");
  EXPECT_GE(*answer["waited"].value().real(), 0.2);
}

TEST_F(InspectorExpectation, showsFiveAtMost) {
  std::vector<std::string> events;
  for (int each = 0; each < 9; ++each) events.push_back(anAction("look", each));
  upload(events);
  const Looked answer = expect(R"({"match":"name:buy"})");
  ASSERT_EQ(answer["nearest"].size(), 5U);
  EXPECT_EQ(answer["nearest"][0]["event"]["seq"].integer(), 9);
}

TEST_F(InspectorExpectation, looksThroughAllBeforeItGivesUp) {
  std::vector<std::string> events;
  for (int each = 0; each < 5000; ++each) events.push_back(anAction("many", each));
  events.push_back(anAction("last", 5000));
  ASSERT_EQ(upload(events).status, 200);
  EXPECT_EQ(*expect(R"({"match":"name:last","within":0})")["ok"].value().boolean(), true);
}

TEST_F(InspectorExpectation, isRefusedWhenItIsMalformed) {
  for (const std::string body :
       {" ", "[]", "{}", R"({"count":1})", R"({"match":1})", R"({"match":"a","count":0})",
        R"({"match":"a","count":"1"})", R"({"match":"a","within":-1})",
        R"({"match":"a","within":3601})", R"({"match":"a","wihtin":1})", R"({"match":"a:b"})",
        R"({"match":"a","count":1e30})"}) {
    EXPECT_EQ(ask("POST", "/api/expect", body).status, 400) << body;
  }
}

TEST_F(InspectorExpectation, isForgottenWhenItsClientLeaves) {
  for (int count = 0; count < 64; ++count) {
    PlainConnection leaving(port);
    leaving.send(
        requestText("POST", "/api/expect", ownHeaders(), R"({"match":"a","within":3600})"));
    leaving.receiveUntil("\r\n\r\n");
  }
  upload({anAction("buy", 1)});
  EXPECT_EQ(*expect(R"({"match":"name:buy"})")["ok"].value().boolean(), true);
}

TEST_F(InspectorExpectation, endsWithTheCollector) {
  PlainConnection waiting(port);
  waiting.send(requestText("POST", "/api/expect", ownHeaders(), R"({"match":"a","within":3600})"));
  waiting.receiveUntil("\r\n\r\n");
  collector->stop();
  waiting.receiveAll();
}

}  // namespace
}  // namespace kite::test
