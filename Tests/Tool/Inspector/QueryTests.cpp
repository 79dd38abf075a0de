#include "Inspector/Search/Query.h"

#include <gmock/gmock.h>

#include <ctime>

namespace kite::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using tool::EventRecord;
using tool::Query;
using tool::RequestRecord;
using tool::SessionRecord;

constexpr double nowForQueries = 1765432200;

tool::Query queryOf(const std::string& text) {
  auto query = Query::parse(text, nowForQueries);
  EXPECT_TRUE(query) << query.error();
  return *std::move(query);
}

std::string errorOf(const std::string& text) {
  const auto query = Query::parse(text, nowForQueries);
  return query ? "" : query.error();
}

EventRecord aBuy() {
  return {.seq = 7,
          .id = "79690975-FBDE-45B0-A2A3-7357AE2CC59B",
          .type = "UserAction",
          .timestamp = nowForQueries - 60,
          .app = "trail-maps",
          .client = "client-1",
          .isTester = true,
          .userInfo = R"({"country":"NZ","device":{"type":"Linux"}})",
          .userIDs = "{}",
          .data = R"({"action_kind":"buy","session_id":"SESSION","price":9.5,"gift":true,)"
                  R"("note":"Très long","none":null,"items":[{"n":1},{"n":2}]})",
          .duplicates = 2};
}

bool finds(const std::string& text) { return queryOf(text).matches(aBuy()); }

TEST(Query, ofNothingFindsEverything) {
  EXPECT_TRUE(finds(""));
  EXPECT_TRUE(finds("   "));
}

TEST(Query, looksAtAnEventsOwnMembers) {
  for (const std::string term :
       {"type:UserAction", "name:buy", "session:SESSION", "client:client-1",
        "id:79690975-FBDE-45B0-A2A3-7357AE2CC59B", "app:trail-maps", "tester:true"}) {
    EXPECT_TRUE(finds(term)) << term;
    EXPECT_FALSE(finds("-" + term)) << term;
  }
  for (const std::string term : {"type:Session", "type:useraction", "name:bought", "session:OTHER",
                                 "client:client", "id:7", "app:x", "tester:false"}) {
    EXPECT_FALSE(finds(term)) << term;
    EXPECT_TRUE(finds("-" + term)) << term;
  }
}

TEST(Query, wantsAllOfItsTerms) {
  EXPECT_TRUE(finds("type:UserAction name:buy  dup:2"));
  EXPECT_FALSE(finds("type:UserAction name:bought"));
}

TEST(Query, takesTheBeginningOfAValue) {
  EXPECT_TRUE(finds("type:User*"));
  EXPECT_TRUE(finds("data.action_kind:b*"));
  EXPECT_FALSE(finds("type:Action*"));
  EXPECT_FALSE(finds(R"(type:"User*")"));
}

TEST(Query, comparesNumbers) {
  for (const std::string term :
       {"dup:2", "dup:>1", "dup:>=2", "dup:<3", "dup:<=2", "data.price:9.5", "data.price:>9",
        "data.price:<=9.5", "data.price:9.50"}) {
    EXPECT_TRUE(finds(term)) << term;
  }
  for (const std::string term :
       {"dup:>2", "dup:1", "data.price:>9.5", "data.price:<9", "data.price:9"}) {
    EXPECT_FALSE(finds(term)) << term;
  }
}

TEST(Query, comparesValuesOfEveryKind) {
  EXPECT_TRUE(finds("data.gift:true"));
  EXPECT_FALSE(finds("data.gift:false"));
  EXPECT_TRUE(finds("data.none:null"));
  EXPECT_TRUE(finds(R"(data.note:"Très long")"));
  EXPECT_FALSE(finds("data.note:>1"));
  EXPECT_FALSE(finds("data.items:1"));
}

TEST(Query, followsAPathIntoObjectsAndArrays) {
  EXPECT_TRUE(finds("info.device.type:Linux"));
  EXPECT_TRUE(finds("data.items.1.n:2"));
  EXPECT_FALSE(finds("data.items.2.n:2"));
  EXPECT_FALSE(finds("data.price.n:2"));
}

TEST(Query, asksWhetherSomethingIsThere) {
  EXPECT_TRUE(finds("has:data.price"));
  EXPECT_TRUE(finds("has:data.none"));
  EXPECT_TRUE(finds("has:info.country"));
  EXPECT_FALSE(finds("has:data.absent"));
  EXPECT_TRUE(finds("-has:data.absent"));
}

TEST(Query, looksForWordsWhateverTheirCase) {
  for (const std::string word : {"BUY", "useraction", "79690975-fbde", "\"Très long\"", "price"}) {
    EXPECT_TRUE(finds(word)) << word;
  }
  EXPECT_FALSE(finds("nowhere"));
  EXPECT_FALSE(finds("-buy"));
}

TEST(Query, readsQuotesWithQuotesInThem) {
  EventRecord event = aBuy();
  event.data = R"({"action_kind":"say \"hi\" \\"})";
  EXPECT_TRUE(queryOf(R"(name:"say \"hi\" \\")").matches(event));
}

TEST(Query, countsTimesFromNow) {
  EXPECT_TRUE(finds("after:-5m"));
  EXPECT_TRUE(finds("after:-90s before:-30s"));
  EXPECT_FALSE(finds("after:-30s"));
  EXPECT_FALSE(finds("before:-1h"));
  EXPECT_TRUE(finds("after:-1d"));
}

TEST(Query, readsTimesOfTheCalendar) {
  EventRecord event = aBuy();
  event.timestamp = 1765432140;  // 2025-12-11T05:49:00Z
  EXPECT_TRUE(queryOf("after:2025-12-11T05:49:00Z").matches(event));
  EXPECT_FALSE(queryOf("after:2025-12-11T05:49:00.5Z").matches(event));
  EXPECT_TRUE(queryOf("before:2025-12-11T07:49:01+02:00").matches(event));
  EXPECT_FALSE(queryOf("before:2025-12-11T05:49:00Z").matches(event));
  EXPECT_TRUE(queryOf("after:2025-12-09 before:2025-12-13").matches(event));
  EXPECT_TRUE(queryOf("after:2025-12-09T10:00").matches(event));
}

TEST(Query, takesATimeOfDayAsToday) {
  const auto instant = static_cast<std::time_t>(nowForQueries);
  std::tm local{};
  ::localtime_r(&instant, &local);
  local.tm_hour = 14;
  local.tm_min = 30;
  local.tm_sec = 0;
  EventRecord event = aBuy();
  event.timestamp = static_cast<double>(std::mktime(&local));
  EXPECT_TRUE(queryOf("after:14:30 before:14:30:01").matches(event));
  EXPECT_FALSE(queryOf("before:14:30").matches(event));
}

TEST(Query, namesTheTermThatItDoesNotUnderstand) {
  for (const std::string term : {"foo:1",
                                 "dup:",
                                 "dup:x",
                                 "dup:>",
                                 "after:",
                                 "after:yesterday",
                                 "after:25:00",
                                 "after:2025-13-01",
                                 "after:2025-12-11T05:49:00X",
                                 "after:-5x",
                                 "before:-m",
                                 "tester:maybe",
                                 "data.:1",
                                 "data..a:1",
                                 "data.a:>x",
                                 "has:price",
                                 "has:",
                                 "type:",
                                 "bad:x",
                                 "status:x",
                                 "-foo:1"}) {
    EXPECT_THAT(errorOf("name:buy " + term), StartsWith(term + ": ")) << term;
  }
  EXPECT_THAT(errorOf("name:\"buy"), HasSubstr("name:\"buy: the quotes do not end"));
}

TEST(Query, isBounded) {
  EXPECT_EQ(errorOf(std::string(4097, 'a')), "the query is too long");
  std::string terms;
  for (int count = 0; count < 65; ++count) terms += "a ";
  EXPECT_EQ(errorOf(terms), "the query has too many terms");
}

TEST(Query, findsRefusedRequestsAndNoEvents) {
  RequestRecord refused{.status = 400, .errorCode = 603, .client = "client-1", .headers = "[]"};
  RequestRecord struck = refused;
  struck.fault = "status:503";
  EXPECT_TRUE(queryOf("bad:").matches(refused));
  EXPECT_TRUE(queryOf("bad: code:603 status:>=400 client:client-1").matches(refused));
  EXPECT_FALSE(queryOf("bad:").matches(struck));
  EXPECT_FALSE(finds("bad:"));
  EXPECT_FALSE(queryOf("type:UserAction").matches(refused));
  EXPECT_FALSE(queryOf("code:603").matches(RequestRecord{}));
}

TEST(Query, looksForWordsInRequests) {
  const RequestRecord request{.endpoint = "https://localhost/v4/events",
                              .message = "the signature does not match",
                              .headers = "[]"};
  EXPECT_TRUE(queryOf("Signature localhost").matches(request));
  EXPECT_FALSE(queryOf("gzip").matches(request));
}

TEST(Query, findsSessionsByTheirTimes) {
  const SessionRecord session{
      .id = "S", .client = "c", .start = nowForQueries - 600, .end = nowForQueries - 100};
  EXPECT_TRUE(queryOf("after:-5m session:S client:c").matches(session));
  EXPECT_FALSE(queryOf("after:-1m").matches(session));
  EXPECT_FALSE(queryOf("before:-11m").matches(session));
}

TEST(Query, saysWhatIsDifferent) {
  EXPECT_THAT(queryOf(R"(name:bought data.price:>10 has:data.colour -gift info.country:DE dup:2)")
                  .differences(aBuy()),
              ElementsAre(R"(name is "buy", wanted "bought")", "data.price is 9.5, wanted > 10",
                          "data.colour is missing", "-gift does not hold",
                          R"(info.country is "NZ", wanted "DE")"));
  EXPECT_THAT(queryOf("name:buy").differences(aBuy()), ElementsAre());
}

TEST(Query, tellsAStoreWhatCanBeLeftOut) {
  const auto filter = queryOf("type:UserAction client:c id:i name:buy").filter();
  EXPECT_EQ(filter.type, "UserAction");
  EXPECT_EQ(filter.client, "c");
  EXPECT_EQ(filter.id, "i");
  const auto none = queryOf("-type:UserAction client:c*").filter();
  EXPECT_EQ(none.type, std::nullopt);
  EXPECT_EQ(none.client, std::nullopt);
}

}  // namespace
}  // namespace kite::test
