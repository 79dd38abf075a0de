#include "Tool/Inspector/InspectedCollector.h"

#include <gmock/gmock.h>

namespace kite::test {
namespace {

using ::testing::HasSubstr;

class InspectorStream : public InspectedCollector {
 protected:
  /// A client that listens from now on.
  std::unique_ptr<PlainConnection> listen(const std::string& members = "") const {
    auto stream = std::make_unique<PlainConnection>(port);
    stream->send(requestText("GET", "/api/stream" + members, ownHeaders()));
    stream->receiveUntil("event: counts");
    stream->receiveUntil("\n\n");
    return stream;
  }

  /// The data of the next frame of that name.
  static Looked frame(PlainConnection& stream, const std::string& name) {
    stream.receiveUntil("event: " + name + "\ndata: ");
    const auto data = tool::parseJSON(stream.receiveUntil("\n"));
    EXPECT_TRUE(data);
    return Looked(data ? *data : JSONValue());
  }
};

TEST_F(InspectorStream, tellsOfEventsWhenTheyAreStored) {
  const auto stream = listen();
  upload({anAction("buy", 1), anAction("look", 2)});
  EXPECT_THAT(stream->receiveUntil("\nevent: "), HasSubstr("id: 2"));
  stream->receiveUntil("data: ");
  const auto data = tool::parseJSON(stream->receiveUntil("\n"));
  ASSERT_TRUE(data);
  const Looked events(*data);
  ASSERT_EQ(events.size(), 2U);
  EXPECT_EQ(events[0]["name"].text(), "buy");
  EXPECT_EQ(events[1]["seq"].integer(), 2);
}

TEST_F(InspectorStream, isAnEventStream) {
  PlainConnection stream(port);
  stream.send(requestText("GET", "/api/stream", ownHeaders()));
  EXPECT_THAT(stream.receiveUntil("\r\n\r\n"), HasSubstr("Content-Type: text/event-stream"));
}

TEST_F(InspectorStream, tellsOnlyWhatIsLookedFor) {
  const auto stream = listen("?query=name%3Abuy");
  upload({anAction("look", 1)});
  upload({anAction("buy", 2)});
  const Looked events = frame(*stream, "events");
  ASSERT_EQ(events.size(), 1U);
  EXPECT_EQ(events[0]["name"].text(), "buy");
  EXPECT_EQ(ask("GET", "/api/stream?query=a:b").status, 400);
}

TEST_F(InspectorStream, tellsEachListenerWhatItIsBehind) {
  upload({anAction("a", 1), anAction("b", 2)});
  std::vector<std::unique_ptr<PlainConnection>> listeners;
  for (const char* members : {"?after=0", "?after=0", "?after=1", "?after=0&query=name:c"}) {
    listeners.push_back(std::make_unique<PlainConnection>(port));
    listeners.back()->send(requestText("GET", std::string("/api/stream") + members, ownHeaders()));
  }
  upload({anAction("c", 3)});
  for (std::size_t at = 0; at < listeners.size(); ++at) {
    SCOPED_TRACE(at);
    std::string names;
    while (!names.ends_with('c')) {
      const Looked events = frame(*listeners[at], "events");
      for (std::size_t row = 0; row < events.size(); ++row) names += events[row]["name"].text();
    }
    EXPECT_EQ(names, std::vector<std::string>({"abc", "abc", "bc", "c"})[at]);
  }
}

TEST_F(InspectorStream, goesOnBehindTheLastEventThatWasSeen) {
  upload({anAction("a", 1), anAction("b", 2), anAction("c", 3)});
  PlainConnection byMember(port);
  byMember.send(requestText("GET", "/api/stream?after=2", ownHeaders()));
  EXPECT_EQ(frame(byMember, "events")[0]["name"].text(), "c");
  PlainConnection byHeader(port);
  auto headers = ownHeaders();
  headers.push_back("Last-Event-ID: 1");
  byHeader.send(requestText("GET", "/api/stream?after=0", headers));
  EXPECT_EQ(frame(byHeader, "events").size(), 2U);
  EXPECT_EQ(errorOf(ask("GET", "/api/stream?after=x"), 400),
            "after is a whole number from 0 to 4611686018427387903");
}

TEST_F(InspectorStream, tellsAllThatWasStoredBeforeWithoutAGap) {
  std::vector<std::string> events;
  for (int each = 0; each < 5000; ++each) events.push_back(anAction("many", each));
  ASSERT_EQ(upload(events).status, 200);
  PlainConnection stream(port);
  stream.send(requestText("GET", "/api/stream?after=0", ownHeaders()));
  std::int64_t next = 1;
  while (next <= 5000) {
    const Looked rows = frame(stream, "events");
    for (std::size_t at = 0; at < rows.size(); ++at) ASSERT_EQ(rows[at]["seq"].integer(), next++);
  }
}

TEST_F(InspectorStream, tellsOfEventsThatComeAgain) {
  upload({anAction("buy", 1)});
  const auto stream = listen();
  upload({anAction("buy", 1)});
  const Looked repeated = frame(*stream, "duplicates");
  EXPECT_EQ(repeated[0]["seq"].integer(), 1);
  EXPECT_EQ(repeated[0]["duplicates"].integer(), 1);
}

TEST_F(InspectorStream, tellsOfRequests) {
  const auto stream = listen("?query=name:nothing");
  client->post(aRequestOf("no gzip", nextRequestID()));
  const Looked requests = frame(*stream, "request");
  EXPECT_EQ(requests[0]["error_code"].integer(), 102);
}

TEST_F(InspectorStream, tellsOfFaultsAsTheyComeAndGo) {
  const auto stream = listen();
  ask("POST", "/api/faults", R"({"fault":"status:503x2"})");
  EXPECT_EQ(frame(*stream, "faults")[0]["left"].integer(), 2);
  upload({aCustomEvent()});
  EXPECT_EQ(frame(*stream, "faults")[0]["left"].integer(), 1);
}

TEST_F(InspectorStream, countsOn) {
  const auto stream = listen();
  upload({aCustomEvent()});
  upload({aCustomEvent()});
  Looked counts = frame(*stream, "counts");
  while (counts["duplicates"].integer() == 0) counts = frame(*stream, "counts");
  EXPECT_EQ(counts["events"].integer(), 1);
  EXPECT_EQ(counts["requests"].integer(), 2);
  EXPECT_EQ(counts["last_seq"].integer(), 1);
}

TEST_F(InspectorStream, tellsOfAClearingAndGoesOn) {
  upload({anAction("a", 1)});
  const auto stream = listen();
  ask("DELETE", "/api/events");
  EXPECT_EQ(frame(*stream, "cleared").value(), JSONValue(JSONValue::Object{}));
  upload({anAction("a", 1)});
  EXPECT_EQ(frame(*stream, "events")[0]["seq"].integer(), 2);
}

TEST_F(InspectorStream, letsAListenerThatLeavesGo) {
  for (int count = 0; count < 100; ++count) listen();
  EXPECT_EQ(upload({aCustomEvent()}).status, 200);
  const auto stream = listen();
  upload({anAction("a", 1)});
  EXPECT_EQ(frame(*stream, "events").size(), 1U);
}

TEST_F(InspectorStream, takesOnlySoManyListeners) {
  std::vector<std::unique_ptr<PlainConnection>> listeners;
  for (int count = 0; count < 32; ++count) listeners.push_back(listen());
  EXPECT_EQ(errorOf(ask("GET", "/api/stream"), 503), "too many clients listen");
}

TEST_F(InspectorStream, isNotHeldUpByAListenerThatDoesNotRead) {
  PlainConnection deaf(port);
  deaf.shrinkBuffer();
  deaf.send(requestText("GET", "/api/stream?after=0", ownHeaders()));
  const auto stream = listen();
  std::vector<std::string> events;
  for (int each = 0; each < 20'000; ++each) events.push_back(anAction("many", each));
  ASSERT_EQ(upload(events).status, 200);
  std::int64_t last = 0;
  while (last < 20'000) {
    const Looked rows = frame(*stream, "events");
    last = rows[rows.size() - 1]["seq"].integer();
  }
  EXPECT_EQ(upload({aCustomEvent()}).status, 200);
}

}  // namespace
}  // namespace kite::test
