#include "Tool/Inspector/InspectedCollector.h"

#include <gmock/gmock.h>

#include <cstdint>

namespace kite::test {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class InspectorListing : public InspectedCollector {
 protected:
  static std::vector<std::string> names(const Looked& page) {
    std::vector<std::string> found;
    for (std::size_t at = 0; at < page["events"].size(); ++at) {
      found.push_back(page["events"][at]["name"].text());
    }
    return found;
  }

  void uploadActions(const std::vector<std::string>& actions) {
    for (const std::string& each : actions) upload({anAction(each, ++number)});
  }

  int number = 0;
};

std::string aSession(const std::string& id, const std::string& data) {
  return anEvent("Session", data, id);
}

TEST_F(InspectorListing, listsTheNewestEventsFirst) {
  uploadActions({"a", "b", "c"});
  const Looked page = get("/api/events");
  EXPECT_THAT(names(page), ElementsAre("c", "b", "a"));
  EXPECT_TRUE(page["next"].value().isNull());
}

TEST_F(InspectorListing, showsARowOfAnEvent) {
  upload({anAction("buy", 1, "{}", '"' + std::string(anotherID) + '"')});
  upload({anAction("buy", 1)});
  const Looked row = get("/api/events")["events"][0];
  EXPECT_EQ(row["type"].text(), "UserAction");
  EXPECT_EQ(row["name"].text(), "buy");
  EXPECT_EQ(*row["timestamp"].value().real(), 1765432100.5);
  EXPECT_EQ(*row["received_at"].value().real(), now);
  EXPECT_EQ(row["app"].text(), "trail-maps");
  EXPECT_EQ(row["client"].text(), "client-1");
  EXPECT_EQ(row["session"].text(), anotherID);
  EXPECT_EQ(*row["tester"].value().boolean(), true);
  EXPECT_EQ(row["duplicates"].integer(), 1);
}

TEST_F(InspectorListing, givesPagesInEitherDirection) {
  uploadActions({"a", "b", "c", "d"});
  const Looked newest = get("/api/events?limit=2");
  EXPECT_THAT(names(newest), ElementsAre("d", "c"));
  const auto before = std::to_string(newest["next"].integer());
  EXPECT_THAT(names(get("/api/events?limit=2&before=" + before)), ElementsAre("b", "a"));
  EXPECT_THAT(names(get("/api/events?after=" + before)), ElementsAre("d"));
  EXPECT_THAT(names(get("/api/events?order=asc&limit=3")), ElementsAre("a", "b", "c"));
  EXPECT_THAT(names(get("/api/events?order=desc&after=1")), ElementsAre("d", "c", "b"));
  EXPECT_EQ(errorOf(ask("GET", "/api/events?order=up"), 400), "order is asc or desc");
}

TEST_F(InspectorListing, findsWhatIsLookedFor) {
  uploadActions({"buy", "look", "buy"});
  EXPECT_THAT(names(get("/api/events?query=name%3Abuy")), ElementsAre("buy", "buy"));
  EXPECT_THAT(errorOf(ask("GET", "/api/events?query=nme%3Abuy"), 400), StartsWith("nme:buy: "));
}

TEST_F(InspectorListing, looksThroughMoreThanOneSlice) {
  upload({anAction("first", 1)});
  std::vector<std::string> events;
  for (int each = 2; each < 5002; ++each) events.push_back(anAction("many", each));
  ASSERT_EQ(upload(events).status, 200);
  EXPECT_THAT(names(get("/api/events?query=name:first")), ElementsAre("first"));
  EXPECT_THAT(names(get("/api/events?query=name:first&order=asc")), ElementsAre("first"));
  const auto exported = ask("GET", "/api/export").body;
  EXPECT_EQ(std::ranges::count(exported, '\n'), 5001);
}

TEST_F(InspectorListing, showsAllOfAnEvent) {
  upload({replaced(anAction("look", 1), "NZ", "DE")});
  upload({anAction("buy", 2, R"({"price":9.5})")});
  const std::string id = get("/api/events?query=name:buy")["events"][0]["id"].text();
  const Looked event = get("/api/events/" + id);
  EXPECT_EQ(event["user_info"]["country"].text(), "NZ");
  EXPECT_EQ(event["previous_user_info"]["country"].text(), "DE");
  EXPECT_EQ(event["user_ids"]["user_id"].text(), "u1");
  EXPECT_EQ(event["data"]["action_kind"].text(), "buy");
  EXPECT_EQ(*event["request_timestamp"].value().real(), 1765432200.0);
  EXPECT_EQ(event["line"].value(), *tool::parseJSON(R"({"op":"trackUserAction","name":"buy",)"
                                                    R"("data":{"price":9.5}})"));
}

TEST_F(InspectorListing, saysWhichLineOfAHostRecordsAnEvent) {
  upload({anEvent("Orders", R"({"n":1})")});
  EXPECT_EQ(get("/api/events/" + std::string(anID))["line"].value(),
            *tool::parseJSON(R"({"op":"trackCustomEvent","in":"Orders","data":{"n":1}})"));
  upload({aSession(anotherID, R"({"subtype":"session_start"})")});
  EXPECT_EQ(get("/api/events/" + std::string(anotherID))["line"]["op"].text(),
            "triggerSessionStart");
}

TEST_F(InspectorListing, takesNothingOfAnEventForMarkup) {
  upload({anAction("<img onerror=alert(1)>", 1)});
  EXPECT_EQ(get("/api/events")["events"][0]["name"].text(), "<img onerror=alert(1)>");
  EXPECT_EQ(ask("GET", "/api/events").headers.at("content-type"), "application/json");
}

TEST_F(InspectorListing, listsSessionsWithWhatIsBetweenThem) {
  const std::string third = "A2E2C3A0-0000-4328-A974-2E6D85EC51AE";
  const auto at = [](const std::string& event, const std::string& time) {
    return replaced(event, "1765432100.5", time);
  };
  upload({at(aSession(anID, R"({"subtype":"session_start"})"), "1765432000"),
          at(aSession(third, R"({"subtype":"session_end","session_start_id":")" +
                                 std::string(anID) + R"(","crashed":false,"duration":10.0})"),
             "1765432010")});
  upload({at(aSession(anotherID, R"({"subtype":"session_start"})"), "1765432030")});
  const Looked sessions = get("/api/sessions")["sessions"];
  ASSERT_EQ(sessions.size(), 2U);
  EXPECT_EQ(sessions[0]["id"].text(), anotherID);
  EXPECT_EQ(*sessions[0]["gap_before"].value().real(), 20.0);
  EXPECT_EQ(*sessions[0]["open"].value().boolean(), true);
  EXPECT_EQ(*sessions[0]["overlaps"].value().boolean(), false);
  EXPECT_EQ(*sessions[1]["ended"].value().boolean(), true);
  EXPECT_EQ(*sessions[1]["end"].value().real(), 1765432010.0);
  EXPECT_EQ(*sessions[1]["open"].value().boolean(), false);
  EXPECT_TRUE(sessions[1]["gap_before"].value().isNull());
  EXPECT_EQ(get("/api/sessions?client=client-2")["sessions"].size(), 0U);
  EXPECT_EQ(get("/api/sessions?query=session:" + std::string(anID))["sessions"].size(), 1U);
  EXPECT_EQ(get("/api/sessions?limit=1")["sessions"].size(), 1U);
}

TEST_F(InspectorListing, listsClients) {
  upload({anAction("buy", 1)});
  const Looked clients = get("/api/clients")["clients"];
  ASSERT_EQ(clients.size(), 1U);
  EXPECT_EQ(clients[0]["client"].text(), "client-1");
  EXPECT_EQ(clients[0]["events"].integer(), 1);
}

TEST_F(InspectorListing, sumsUp) {
  upload({anAction("buy", 1), aCustomEvent()});
  upload({anAction("buy", 1)});
  client->post(aRequestOf("no gzip", nextRequestID()));
  const Looked summary = get("/api/summary");
  EXPECT_EQ(summary["events"].integer(), 2);
  EXPECT_EQ(summary["duplicates"].integer(), 1);
  EXPECT_EQ(summary["requests"].integer(), 3);
  EXPECT_EQ(summary["refused"].integer(), 1);
  EXPECT_EQ(summary["by_type"]["Purchase"].integer(), 1);
  EXPECT_EQ(summary["by_type"]["UserAction"].integer(), 1);
  EXPECT_EQ(summary["endpoint"].text(), address.url);
  EXPECT_EQ(summary["ca"].text(), address.ca);
  EXPECT_EQ(summary["last_seq"].integer(), 2);
}

TEST_F(InspectorListing, clearsTheDatabase) {
  upload({anAction("buy", 1), aCustomEvent()});
  EXPECT_EQ(json(ask("DELETE", "/api/events"))["deleted"].integer(), 2);
  EXPECT_EQ(get("/api/events")["events"].size(), 0U);
  EXPECT_EQ(get("/api/requests")["requests"].size(), 0U);
  upload({anAction("buy", 1)});
  EXPECT_EQ(get("/api/events")["events"].size(), 1U);
}

TEST_F(InspectorListing, exportsWhatTheSearchShows) {
  upload({anAction("buy", 1), aCustomEvent()});
  const auto lines = ask("GET", "/api/export?query=name:buy&format=ndjson");
  EXPECT_EQ(lines.headers.at("content-disposition"), "attachment; filename=\"events.ndjson\"");
  EXPECT_THAT(lines.body, EndsWith("}\n"));
  const auto line = tool::parseJSON(lines.body);
  ASSERT_TRUE(line);
  EXPECT_EQ(Looked(*line)["data"]["action_kind"].text(), "buy");

  const auto array = tool::parseJSON(ask("GET", "/api/export?format=json").body);
  ASSERT_TRUE(array);
  EXPECT_EQ(Looked(*array).size(), 2U);
  EXPECT_EQ(errorOf(ask("GET", "/api/export?format=xml"), 400), "format is ndjson, json or csv");
}

TEST_F(InspectorListing, exportsCellsThatNoProgramTakesForAFormula) {
  upload({anAction("=1+1", 1)});
  const auto table = ask("GET", "/api/export?format=csv").body;
  EXPECT_THAT(table, StartsWith("seq,id,type,name,timestamp,"));
  EXPECT_THAT(table, HasSubstr(R"(,"UserAction","'=1+1",1765432100.5,)"));
  EXPECT_THAT(table, HasSubstr(R"("{""country"":""NZ""}")"));
}

TEST_F(InspectorListing, exportsALineForAnEventThatCameInSeveral) {
  upload({anEvent("Orders", "{\"n\":\n 1}")});
  const auto lines = ask("GET", "/api/export").body;
  EXPECT_EQ(std::ranges::count(lines, '\n'), 1);
}

TEST_F(InspectorListing, setsFaultsWhileItRuns) {
  const auto set = ask("POST", "/api/faults", R"({"fault":"status:503x2"})");
  EXPECT_EQ(json(set)["faults"][0]["fault"].text(), "status:503");
  EXPECT_EQ(json(set)["faults"][0]["left"].integer(), 2);
  EXPECT_EQ(upload({aCustomEvent()}).status, 503);
  EXPECT_EQ(get("/api/faults")["faults"][0]["left"].integer(), 1);
  EXPECT_EQ(json(ask("DELETE", "/api/faults"))["faults"].size(), 0U);
  EXPECT_EQ(upload({aCustomEvent()}).status, 200);
}

TEST_F(InspectorListing, saysWhichFaultItDoesNotKnow) {
  EXPECT_THAT(errorOf(ask("POST", "/api/faults", R"({"fault":"nonsense"})"), 400),
              HasSubstr("\"nonsense\" is no fault"));
  for (const std::string body : {"", "[]", "{}", R"({"fault":1})", R"({"fault":"reset","x":1})",
                                 R"({"fault":"body:/etc/passwd"})"}) {
    EXPECT_EQ(ask("POST", "/api/faults", body.empty() ? " " : body).status, 400) << body;
  }
  EXPECT_EQ(get("/api/faults")["faults"].size(), 0U);
}

}  // namespace
}  // namespace kite::test
