#include "Tool/Inspector/InspectedCollector.h"

#include <gmock/gmock.h>

namespace kite::test {
namespace {

using ::testing::HasSubstr;

class InspectorRequests : public InspectedCollector {
 protected:
  /// Sends the request as it is, but for its host; it is not signed anew.
  void sendUnsigned(tool::ReceivedRequest request) { client->post(std::move(request), Sign::no); }

  Looked newest() { return get("/api/requests?limit=1")["requests"][0]; }
  Looked detail() { return get("/api/requests/" + std::to_string(newest()["seq"].integer())); }

  std::string host() const {
    const auto begin = address.url.find("//") + 2;
    return address.url.substr(begin, address.url.find('/', begin) - begin);
  }

  /// Signs a text of the test's own making.
  std::string mistakeOf(const std::string& url, const std::string& body,
                        const std::string& timestamp = "1765432200250") {
    auto request = aRequest(aBody({aCustomEvent()}), nextRequestID());
    const std::string text = url + ":" + (body.empty() ? tool::hexadecimal(request.body) : body) +
                             ":" + timestamp + ":" +
                             std::string(request.header("Wicket-Request-Id"));
    header(request, "Wicket-Signature").value = *tool::hmacText(text, "Sha512", key);
    sendUnsigned(request);
    return detail()["signature"]["mistake"].text();
  }

  std::string rightURL() const { return "http://" + host() + "/v4/events"; }

  /// Where a body that is refused broke which rule.
  Looked whereOf(const std::string& json) {
    EXPECT_EQ(client->post(aRequest(json, nextRequestID())).status, 422);
    return detail()["where"];
  }
};

TEST_F(InspectorRequests, showsWhatBecameOfAnUpload) {
  upload({aCustomEvent(), anAction("buy", 1)});
  upload({aCustomEvent()});
  const Looked request = get("/api/requests")["requests"][1];
  EXPECT_EQ(request["method"].text(), "POST");
  EXPECT_EQ(request["path"].text(), "/v4/events");
  EXPECT_EQ(request["endpoint"].text(), address.url);
  EXPECT_EQ(request["status"].integer(), 200);
  EXPECT_EQ(request["events"].integer(), 2);
  EXPECT_EQ(request["new"].integer(), 2);
  EXPECT_EQ(request["client"].text(), "client-1");
  EXPECT_EQ(request["attempt"].integer(), 1);
  EXPECT_GT(request["unpacked_bytes"].integer(), request["bytes"].integer());
  EXPECT_EQ(newest()["duplicates"].integer(), 1);
}

TEST_F(InspectorRequests, leavesTheHealthOut) {
  client->get("/health");
  EXPECT_EQ(get("/api/requests")["requests"].size(), 0U);
  client->get("/v4/event");
  EXPECT_EQ(newest()["status"].integer(), 404);
}

TEST_F(InspectorRequests, countsAClientsTries) {
  collector->addFault(*tool::parseFault("status:503x2"));
  for (int count = 0; count < 4; ++count) upload({aCustomEvent()});
  const Looked requests = get("/api/requests?after=0")["requests"];
  for (const std::size_t at : {0U, 1U, 2U}) {
    EXPECT_EQ(requests[at]["attempt"].integer(), static_cast<std::int64_t>(at) + 1);
  }
  EXPECT_EQ(requests[0]["fault"].text(), "status:503");
  EXPECT_EQ(requests[3]["attempt"].integer(), 1);
}

TEST_F(InspectorRequests, findsTheRefusedOnes) {
  upload({aCustomEvent()});
  client->post(aRequestOf("no gzip", nextRequestID()));
  EXPECT_EQ(get("/api/requests?query=bad:")["requests"].size(), 1U);
  EXPECT_EQ(get("/api/requests?query=status:200")["requests"].size(), 1U);
  EXPECT_EQ(get("/api/events?query=bad:")["events"].size(), 0U);
}

TEST_F(InspectorRequests, givesARefusedBodyBack) {
  client->post(aRequestOf("no gzip", nextRequestID()));
  const std::string path = "/api/requests/" + std::to_string(newest()["seq"].integer()) + "/body";
  EXPECT_EQ(ask("GET", path).body, "no gzip");
  EXPECT_THAT(errorOf(ask("GET", path + "?unpacked=1"), 422), HasSubstr("not a gzip stream"));
  client->post(aRequest("[1]", nextRequestID()));
  const std::string next = "/api/requests/" + std::to_string(newest()["seq"].integer()) + "/body";
  EXPECT_EQ(ask("GET", next + "?unpacked=1").body, "[1]");
  EXPECT_THAT(ask("GET", next).headers.at("content-disposition"), HasSubstr("attachment"));
  upload({aCustomEvent()});
  EXPECT_EQ(
      ask("GET", "/api/requests/" + std::to_string(newest()["seq"].integer()) + "/body").status,
      404);
}

TEST_F(InspectorRequests, explainsASignatureThatDoesNotMatch) {
  auto request = aRequest(aBody({aCustomEvent()}), nextRequestID());
  header(request, "Wicket-Signature").value = "00";
  sendUnsigned(request);
  const Looked signature = detail()["signature"];
  EXPECT_EQ(signature["received"].text(), "00");
  EXPECT_EQ(signature["expected"].text().size(), 128U);
  EXPECT_THAT(signature["signed_text"].text(), ::testing::StartsWith(rightURL() + ":1f8b"));
  EXPECT_THAT(signature["signed_text"].text(), HasSubstr("…"));
  EXPECT_TRUE(signature["mistake"].value().isNull());
  EXPECT_EQ(detail()["rule"].text(), "the signature does not match the request");
}

TEST_F(InspectorRequests, neverShowsTheKey) {
  auto request = aRequest(aBody({aCustomEvent()}), nextRequestID());
  header(request, "Wicket-Signature").value = "00";
  sendUnsigned(request);
  const auto seq = std::to_string(newest()["seq"].integer());
  EXPECT_THAT(ask("GET", "/api/requests/" + seq).body, ::testing::Not(HasSubstr("\"" + key)));
  EXPECT_THAT(ask("GET", "/api/summary").body, ::testing::Not(HasSubstr(key)));
}

TEST_F(InspectorRequests, knowsTheMistakesThatAreMadeWithSignatures) {
  EXPECT_EQ(mistakeOf("https://" + host() + "/v4/events", ""), "https left in the scheme");
  EXPECT_EQ(mistakeOf(replaced(rightURL(), "127.0.0.1", "localhost"), ""),
            "another host: " + replaced(host(), "127.0.0.1", "localhost"));
  EXPECT_EQ(mistakeOf("http://127.0.0.1/v4/events", ""), "another host: 127.0.0.1");
  EXPECT_EQ(mistakeOf("http://" + host(), ""), "no path");
  EXPECT_EQ(mistakeOf(rightURL() + "/", ""), "another path: /v4/events/");
  EXPECT_EQ(mistakeOf(rightURL(), "", "1765432200"), "seconds instead of milliseconds");
  EXPECT_EQ(mistakeOf(rightURL(), tool::hexadecimal(aBody({aCustomEvent()}))),
            "the body before compression");
  std::string upper = tool::hexadecimal(gzipped(aBody({aCustomEvent()})));
  for (char& letter : upper) letter = static_cast<char>(std::toupper(letter));
  EXPECT_EQ(mistakeOf(rightURL(), upper), "upper-case hexadecimal");
}

TEST_F(InspectorRequests, knowsASignatureInUpperCase) {
  auto request = aRequest(aBody({aCustomEvent()}), nextRequestID());
  header(request, "Host").value = host();
  sign(request);
  for (char& letter : header(request, "Wicket-Signature").value) {
    letter = static_cast<char>(std::toupper(letter));
  }
  sendUnsigned(request);
  EXPECT_EQ(detail()["signature"]["mistake"].text(), "upper-case hexadecimal");
}

TEST_F(InspectorRequests, saysHowFarAClockIsOff) {
  auto request = aRequest(aBody({aCustomEvent()}), nextRequestID());
  header(request, "Wicket-Timestamp").value = "1765431200250";
  EXPECT_EQ(client->post(request).status, 400);
  EXPECT_EQ(*detail()["timestamp"]["skew"].value().real(), -1000.0);
  EXPECT_TRUE(detail()["timestamp"]["mistake"].value().isNull());
}

TEST_F(InspectorRequests, knowsATimestampInSeconds) {
  auto request = aRequest(aBody({aCustomEvent()}), nextRequestID());
  header(request, "Wicket-Timestamp").value = "1765432200";
  EXPECT_EQ(client->post(request).status, 400);
  EXPECT_EQ(detail()["timestamp"]["mistake"].text(), "seconds instead of milliseconds");
}

TEST_F(InspectorRequests, showsWhereAnEventBrokeARule) {
  const Looked where =
      whereOf(aBody({aCustomEvent(anotherID), replaced(anAction("buy", 1), R"("buy")", "17")}));
  EXPECT_EQ(where["path"].text(), "events[1].data.action_kind");
  EXPECT_THAT(where["excerpt"].text(), HasSubstr(R"("action_kind":17)"));
  EXPECT_EQ(detail()["rule"].text(),
            "event " + numbered(anID, 1) + ": data.action_kind must be a string");
}

TEST_F(InspectorRequests, showsWhereAMemberIsMissing) {
  const Looked where = whereOf(aBody({replaced(aCustomEvent(), R"("type":"Purchase",)", "")}));
  EXPECT_EQ(where["path"].text(), "events[0].type");
  EXPECT_EQ(where["offset"].integer(), 11);
}

TEST_F(InspectorRequests, showsWhereABodyIsNoJSON) {
  const Looked where = whereOf(R"({"events":[{"type":}]})");
  EXPECT_EQ(where["path"].text(), "");
  EXPECT_EQ(where["offset"].integer(), 19);
}

TEST_F(InspectorRequests, showsWhereAKeyIsRepeated) {
  EXPECT_EQ(whereOf(aBody({anEvent("Purchase", R"({"a":{"b":1,"b":2}})")}))["path"].text(),
            "events[0].data.a.b");
}

TEST_F(InspectorRequests, showsWhichMemberOfABodyIsWrong) {
  EXPECT_EQ(whereOf(R"({"events":[],"delta":0.0})")["path"].text(), "events");
  EXPECT_EQ(whereOf(R"({"events":[{}],"more":0})")["path"].text(), "more");
}

TEST_F(InspectorRequests, hasNoPlaceForABodyThatDoesNotUnpack) {
  client->post(aRequestOf("no gzip", nextRequestID()));
  EXPECT_TRUE(detail()["where"].value().isNull());
}

}  // namespace
}  // namespace kite::test
