#pragma once

#include "Collector/Store/EventStore.h"

#include <gmock/gmock.h>

#include <algorithm>

/// What every kind of store must do. A program includes it once, behind its `Kinds`: the type list
/// of classes that each make an empty store, with `place()` and with `query(sql)`, which gives all
/// values, a blank between two columns and a line end behind each row.

namespace kite::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Optional;
using tool::Accepted;
using tool::EventRecord;
using tool::Order;
using tool::ReceivedEvent;
using tool::RequestRecord;
using tool::Seq;
using tool::SeqRange;
using tool::SessionRecord;

constexpr double aTime = 1000.5;
constexpr double receivedAt = 2000.25;

ReceivedEvent anyEvent(const std::string& id, double timestamp = aTime,
                       const std::string& type = "Purchase",
                       const std::string& data = R"({"price":9.5})") {
  return {.id = id,
          .type = type,
          .timestamp = timestamp,
          .userInfo = R"({"country":"NZ"})",
          .userIDs = R"({"user_id":"u1"})",
          .data = data,
          .facts = tool::factsOf(id, type, data)};
}

ReceivedEvent sessionStart(const std::string& id, double timestamp) {
  return anyEvent(id, timestamp, "Session", R"({"subtype":"session_start"})");
}

ReceivedEvent sessionEnd(const std::string& session, double timestamp, bool crashed = false,
                         const std::string& duration = "0") {
  return anyEvent("end of " + session, timestamp, "Session",
                  R"({"subtype":"session_end","session_start_id":")" + session + R"(","crashed":)" +
                      (crashed ? "true" : "false") + R"(,"duration":)" + duration + "}");
}

ReceivedEvent action(const std::string& id, double timestamp, const std::string& session,
                     bool isInBackground = false) {
  return anyEvent(id, timestamp, "UserAction",
                  R"({"action_kind":"buy","session_id":")" + session +
                      R"(","is_background_event":)" + (isInBackground ? "true" : "false") + "}");
}

template <class Kind>
class EventStoreContract : public ::testing::Test {
 protected:
  EventStoreContract() { restart(); }

  void restart(tool::RefusedBodiesBound bound = {}) {
    store.reset();
    auto opened = tool::openStore(kind.place(), bound);
    ASSERT_TRUE(opened) << opened.error();
    store = *std::move(opened);
    auto read = tool::openReader(kind.place());
    ASSERT_TRUE(read) << read.error();
    reader = *std::move(read);
  }

  tool::Stored add(const std::vector<ReceivedEvent>& events,
                   const std::string& client = "client-1") {
    const Accepted accepted{.sender = {.requestID = "request " + std::to_string(++requests),
                                       .app = "trail-maps",
                                       .clientID = client,
                                       .isTester = true},
                            .batch = {.requestTimestamp = 1500, .events = events, .textBytes = 1}};
    return store->store(accepted, receivedAt);
  }

  void record(const RequestRecord& request, const std::string& body = "") {
    store->record(request, body);
  }

  std::vector<std::string> ids(SeqRange range, Order order = Order::oldestFirst,
                               const tool::EventFilter& filter = {}) {
    std::vector<std::string> found;
    reader->scanEvents(range, order, filter, [&found](const EventRecord& event) {
      found.push_back(event.id);
      return true;
    });
    return found;
  }

  std::vector<std::string> allIDs() { return ids(reader->events()); }

  std::vector<SessionRecord> sessions() {
    std::vector<SessionRecord> found;
    reader->scanSessions(reader->sessions(), std::nullopt, [&found](const SessionRecord& session) {
      found.push_back(session);
      return true;
    });
    return found;
  }

  Kind kind;
  int requests = 0;
  std::unique_ptr<tool::EventStore> store;
  std::unique_ptr<tool::EventReader> reader;
};

TYPED_TEST_SUITE(EventStoreContract, Kinds);

RequestRecord aRecord(int status = 200) {
  return {.receivedAt = receivedAt,
          .method = "POST",
          .path = "/v4/events",
          .endpoint = "https://localhost/v4/events",
          .status = status,
          .bytes = 3,
          .headers = "[]"};
}

RequestRecord aRefusal() {
  RequestRecord request = aRecord(422);
  request.errorCode = 102;
  request.message = "the body: not a gzip stream";
  return request;
}

TYPED_TEST(EventStoreContract, keepsAllOfAnEvent) {
  this->add({anyEvent("a")});
  EXPECT_THAT(this->reader->event("a"), Optional(EventRecord{.seq = this->reader->events().first,
                                                             .id = "a",
                                                             .type = "Purchase",
                                                             .timestamp = aTime,
                                                             .requestTimestamp = 1500,
                                                             .receivedAt = receivedAt,
                                                             .app = "trail-maps",
                                                             .client = "client-1",
                                                             .isTester = true,
                                                             .userInfo = R"({"country":"NZ"})",
                                                             .userIDs = R"({"user_id":"u1"})",
                                                             .data = R"({"price":9.5})",
                                                             .duplicates = 0}));
  EXPECT_EQ(this->reader->event("b"), std::nullopt);
}

TYPED_TEST(EventStoreContract, numbersEventsInTheirOrder) {
  this->add({anyEvent("b"), anyEvent("a")});
  this->add({anyEvent("c")});
  EXPECT_THAT(this->allIDs(), ElementsAre("b", "a", "c"));
  EXPECT_LT(this->reader->event("b")->seq, this->reader->event("a")->seq);
}

TYPED_TEST(EventStoreContract, isEmptyAtFirst) {
  EXPECT_EQ(this->reader->events().last, 0);
  EXPECT_EQ(this->reader->requests().last, 0);
  EXPECT_EQ(this->reader->sessions().last, 0);
  EXPECT_THAT(this->allIDs(), IsEmpty());
  EXPECT_EQ(this->reader->totals(), tool::Totals{});
}

TYPED_TEST(EventStoreContract, tellsWhichEventsCameAgain) {
  this->add({anyEvent("a"), anyEvent("b")});
  const auto again = this->add({anyEvent("b"), anyEvent("c"), anyEvent("b")});
  EXPECT_EQ(again.newEvents, 1U);
  EXPECT_EQ(again.duplicates, 2U);
  const Seq seq = this->reader->event("b")->seq;
  EXPECT_THAT(again.repeated,
              ElementsAre(tool::RepeatedEvent{seq, "b", 1}, tool::RepeatedEvent{seq, "b", 2}));
  EXPECT_EQ(this->reader->event("b")->duplicates, 2);
  EXPECT_EQ(this->reader->totals().duplicates, 2);
  EXPECT_EQ(this->reader->totals().events, 3);
}

TYPED_TEST(EventStoreContract, knowsTheNewestTimestampOfAClient) {
  EXPECT_EQ(this->add({anyEvent("a", 30), anyEvent("b", 20)}).newestTimestamp, 30);
  EXPECT_EQ(this->add({anyEvent("c", 10)}).newestTimestamp, 30);
  EXPECT_EQ(this->add({anyEvent("d", 10)}, "client-2").newestTimestamp, 10);
}

TYPED_TEST(EventStoreContract, rememberesIDsOfRequests) {
  EXPECT_FALSE(this->store->hasSeen("request 1"));
  this->add({anyEvent("a")});
  this->store->remember({.requestID = "bad", .app = "", .clientID = "c", .isTester = false},
                        tool::invalidFormat("no"), receivedAt);
  this->restart();
  EXPECT_TRUE(this->store->hasSeen("request 1"));
  EXPECT_TRUE(this->store->hasSeen("bad"));
}

TYPED_TEST(EventStoreContract, scansARangeInEitherOrder) {
  this->add({anyEvent("a"), anyEvent("b"), anyEvent("c"), anyEvent("d")});
  const SeqRange middle{this->reader->event("b")->seq, this->reader->event("c")->seq};
  EXPECT_THAT(this->ids(middle), ElementsAre("b", "c"));
  EXPECT_THAT(this->ids(middle, Order::newestFirst), ElementsAre("c", "b"));
}

TYPED_TEST(EventStoreContract, endsAScanWhenItIsTold) {
  this->add({anyEvent("a"), anyEvent("b")});
  int count = 0;
  this->reader->scanEvents(this->reader->events(), Order::oldestFirst, {},
                           [&count](const EventRecord&) { return ++count < 1; });
  EXPECT_EQ(count, 1);
}

TYPED_TEST(EventStoreContract, leavesOutNothingThatAFilterWants) {
  this->add({anyEvent("a"), anyEvent("b", aTime, "Refund")});
  this->add({anyEvent("c")}, "client-2");
  const auto all = this->reader->events();
  EXPECT_THAT(this->ids(all, Order::oldestFirst, {.type = "Refund"}), ::testing::Contains("b"));
  EXPECT_THAT(this->ids(all, Order::oldestFirst, {.client = "client-2"}), ::testing::Contains("c"));
  EXPECT_THAT(this->ids(all, Order::oldestFirst, {.id = "a"}), ::testing::Contains("a"));
}

TYPED_TEST(EventStoreContract, findsTheEventOfAClientBeforeAnother) {
  this->add({anyEvent("a")});
  this->add({anyEvent("b")}, "client-2");
  this->add({anyEvent("c")});
  EXPECT_EQ(this->reader->eventBefore(*this->reader->event("c"))->id, "a");
  EXPECT_EQ(this->reader->eventBefore(*this->reader->event("a")), std::nullopt);
}

TYPED_TEST(EventStoreContract, readsWhatIsWrittenMeanwhile) {
  this->add({anyEvent("a")});
  std::vector<std::string> seen;
  this->reader->scanEvents({1, 100}, Order::oldestFirst, {}, [&](const EventRecord& event) {
    seen.push_back(event.id);
    if (seen.size() == 1) this->add({anyEvent("b")});
    return true;
  });
  EXPECT_EQ(seen.front(), "a");
  EXPECT_THAT(this->allIDs(), ElementsAre("a", "b"));
}

TYPED_TEST(EventStoreContract, keepsAllOfARequest) {
  RequestRecord request = aRefusal();
  request.fault = "status:503";
  request.unpackedBytes = 77;
  request.newEvents = 5;
  request.duplicates = 6;
  request.duration = 0.125;
  request.attempt = 3;
  request.client = "client-1";
  request.requestID = "request 1";
  request.headers = R"([["Host","localhost"]])";
  this->record(request);
  request.seq = this->reader->requests().last;
  EXPECT_THAT(this->reader->request(request.seq), Optional(request));
  EXPECT_EQ(this->reader->request(request.seq + 1), std::nullopt);
}

TYPED_TEST(EventStoreContract, scansRequestsInEitherOrder) {
  for (const int status : {200, 201, 202}) this->record(aRecord(status));
  const auto statuses = [this](Order order) {
    std::vector<int> found;
    this->reader->scanRequests(this->reader->requests(), order,
                               [&found](const RequestRecord& request) {
                                 found.push_back(request.status);
                                 return found.size() < 2;
                               });
    return found;
  };
  EXPECT_THAT(statuses(Order::oldestFirst), ElementsAre(200, 201));
  EXPECT_THAT(statuses(Order::newestFirst), ElementsAre(202, 201));
}

TYPED_TEST(EventStoreContract, keepsTheBodyOfARefusedRequest) {
  const std::string body("\0a\xFF", 3);
  this->record(aRefusal(), body);
  this->record(aRecord());
  const Seq last = this->reader->requests().last;
  EXPECT_THAT(this->reader->refusedBody(last - 1), Optional(body));
  EXPECT_TRUE(this->reader->request(last - 1)->hasBody);
  EXPECT_EQ(this->reader->refusedBody(last), std::nullopt);
  EXPECT_FALSE(this->reader->request(last)->hasBody);
}

TYPED_TEST(EventStoreContract, keepsTheNewestBodiesUpToANumber) {
  this->restart({.count = 2, .bytes = 1000});
  for (const std::string body : {"a", "b", "c"}) this->record(aRefusal(), body);
  const Seq last = this->reader->requests().last;
  EXPECT_EQ(this->reader->refusedBody(last - 2), std::nullopt);
  EXPECT_THAT(this->reader->refusedBody(last - 1), Optional(std::string("b")));
  EXPECT_THAT(this->reader->refusedBody(last), Optional(std::string("c")));
}

TYPED_TEST(EventStoreContract, keepsTheNewestBodiesUpToTheirBytes) {
  this->restart({.count = 100, .bytes = 10});
  this->record(aRefusal(), "123456");
  this->record(aRefusal(), "1234");
  const Seq last = this->reader->requests().last;
  EXPECT_TRUE(this->reader->refusedBody(last - 1));
  this->record(aRefusal(), "1");
  EXPECT_FALSE(this->reader->refusedBody(last - 1));
  EXPECT_TRUE(this->reader->refusedBody(last));
  this->record(aRefusal(), "12345678901");
  EXPECT_FALSE(this->reader->request(this->reader->requests().last)->hasBody);
}

TYPED_TEST(EventStoreContract, countsByType) {
  this->add({anyEvent("a", 30), anyEvent("b", 10, "Refund")});
  this->add({anyEvent("c", 20)}, "client-2");
  this->record(aRecord());
  this->record(aRefusal());
  RequestRecord struck = aRefusal();
  struck.fault = "status:503";
  this->record(struck);
  EXPECT_EQ(this->reader->totals(), (tool::Totals{.events = 3,
                                                  .requests = 3,
                                                  .refused = 1,
                                                  .clients = 2,
                                                  .byType = {{"Purchase", 2}, {"Refund", 1}},
                                                  .oldest = 10,
                                                  .newest = 30,
                                                  .lastEvent = this->reader->events().last}));
}

TYPED_TEST(EventStoreContract, countsByClient) {
  this->add({anyEvent("a", 30), sessionStart("b", 10)});
  this->add({anyEvent("c", 20)}, "client-2");
  this->add({anyEvent("d", 25)});
  EXPECT_THAT(this->reader->clients(10), ElementsAre(tool::ClientRecord{.client = "client-1",
                                                                        .app = "trail-maps",
                                                                        .events = 3,
                                                                        .sessions = 1,
                                                                        .first = 10,
                                                                        .last = 30,
                                                                        .isTester = true},
                                                     tool::ClientRecord{.client = "client-2",
                                                                        .app = "trail-maps",
                                                                        .events = 1,
                                                                        .first = 20,
                                                                        .last = 20,
                                                                        .isTester = true}));
  EXPECT_EQ(this->reader->clients(1).size(), 1U);
}

TYPED_TEST(EventStoreContract, followsASessionFromItsStartToItsEnd) {
  this->add({sessionStart("s", 10), action("a", 12, "s")});
  this->restart();
  this->add({action("b", 15, "s"), sessionEnd("s", 20)});
  ASSERT_EQ(this->sessions().size(), 1U);
  const SessionRecord session = this->sessions().front();
  EXPECT_EQ(session.id, "s");
  EXPECT_EQ(session.client, "client-1");
  EXPECT_EQ(session.start, 10);
  EXPECT_EQ(session.end, 20);
  EXPECT_TRUE(session.hasEnded);
  EXPECT_FALSE(session.hasCrashed);
  EXPECT_EQ(session.events, 4);
}

TYPED_TEST(EventStoreContract, letsASessionWithoutItsEndLastToItsNewestEvent) {
  this->add({sessionStart("s", 10), action("a", 12, "s")});
  EXPECT_EQ(this->sessions().front().end, 12);
  EXPECT_FALSE(this->sessions().front().hasEnded);
}

TYPED_TEST(EventStoreContract, endsACrashedSessionWhenItCrashed) {
  this->add({sessionStart("s", 10)});
  this->add({sessionEnd("s", 500, /*crashed=*/true, "7.5")});
  EXPECT_EQ(this->sessions().front().end, 17.5);
  EXPECT_TRUE(this->sessions().front().hasCrashed);
}

TYPED_TEST(EventStoreContract, knowsWhenASessionWasInTheBackground) {
  this->add({sessionStart("s", 10), action("a", 12, "s", true), action("b", 14, "s", true)});
  this->add({action("c", 15, "s"), action("d", 20, "s", true)});
  EXPECT_THAT(this->sessions().front().background,
              ElementsAre(std::pair(12.0, 15.0), std::pair(20.0, 20.0)));
}

TYPED_TEST(EventStoreContract, doesNotCountAnEventOfASessionTwice) {
  this->add({sessionStart("s", 10)});
  this->add({sessionStart("s", 10)});
  EXPECT_EQ(this->sessions().front().events, 1);
}

TYPED_TEST(EventStoreContract, keepsSessionsOfClientsApart) {
  this->add({sessionStart("s", 10)});
  this->add({action("a", 50, "s")}, "client-2");
  EXPECT_EQ(this->sessions().size(), 2U);
  int count = 0;
  this->reader->scanSessions(this->reader->sessions(), "client-2",
                             [&count](const SessionRecord& session) {
                               EXPECT_EQ(session.client, "client-2");
                               return ++count < 100;
                             });
  EXPECT_EQ(count, 1);
}

TYPED_TEST(EventStoreContract, findsTheSessionsNextToOne) {
  this->add({sessionStart("late", 30), sessionStart("early", 10), sessionStart("middle", 20)});
  this->add({sessionStart("other", 25)}, "client-2");
  SessionRecord middle;
  for (const SessionRecord& each : this->sessions()) middle = each.id == "middle" ? each : middle;
  EXPECT_EQ(this->reader->sessionBefore(middle)->id, "early");
  EXPECT_EQ(this->reader->sessionAfter(middle)->id, "late");
  EXPECT_EQ(this->reader->sessionAfter(*this->reader->sessionAfter(middle)), std::nullopt);
}

TYPED_TEST(EventStoreContract, isEmptyWhenItWasCleared) {
  this->add({anyEvent("a"), sessionStart("s", 10)});
  this->record(aRefusal(), "body");
  const Seq last = this->reader->events().last;
  EXPECT_EQ(this->store->clear(), 2);
  EXPECT_THAT(this->allIDs(), IsEmpty());
  EXPECT_THAT(this->sessions(), IsEmpty());
  EXPECT_EQ(this->reader->totals(), tool::Totals{.lastEvent = last});
  EXPECT_THAT(this->reader->clients(10), IsEmpty());
}

TYPED_TEST(EventStoreContract, numbersEventsHigherAlsoAfterAClearing) {
  this->add({anyEvent("a"), anyEvent("b")});
  this->record(aRecord());
  const Seq lastEvent = this->reader->events().last;
  const Seq lastRequest = this->reader->requests().last;
  this->store->clear();
  this->restart();
  this->add({anyEvent("a")});
  this->record(aRecord());
  EXPECT_GT(this->reader->events().first, lastEvent);
  EXPECT_GT(this->reader->requests().first, lastRequest);
}

TYPED_TEST(EventStoreContract, knowsIDsOfRequestsAndNewestTimestampsAlsoAfterAClearing) {
  this->add({anyEvent("a", 30)});
  this->store->clear();
  EXPECT_TRUE(this->store->hasSeen("request 1"));
  EXPECT_EQ(this->add({anyEvent("b", 10)}).newestTimestamp, 30);
}

TYPED_TEST(EventStoreContract, canBeClearedFromBesideTheIntake) {
  this->add({anyEvent("a")});
  auto beside = tool::openStore(this->kind.place());
  ASSERT_TRUE(beside);
  EXPECT_EQ((*std::move(beside))->clear(), 1);
  EXPECT_EQ(this->add({anyEvent("a")}).newEvents, 1U);
}

TYPED_TEST(EventStoreContract, storesNothingOfARequestWhoseIDWasUsedMeanwhile) {
  this->store->remember({.requestID = "request 1", .app = "", .clientID = "c", .isTester = false},
                        tool::invalidFormat("no"), receivedAt);
  EXPECT_TRUE(this->add({anyEvent("a")}).isReplay);
  EXPECT_THAT(this->allIDs(), IsEmpty());
  EXPECT_FALSE(this->add({anyEvent("a")}).isReplay);
  EXPECT_THAT(this->allIDs(), ElementsAre("a"));
}

TYPED_TEST(EventStoreContract, remembersARequestTwice) {
  for (int time = 0; time < 2; ++time) {
    this->store->remember({.requestID = "bad", .app = "", .clientID = "c", .isTester = false},
                          tool::invalidFormat("no"), receivedAt);
  }
  EXPECT_TRUE(this->store->hasSeen("bad"));
}

TYPED_TEST(EventStoreContract, knowsWhatAnotherStoreOfItsPlaceTookIn) {
  auto beside = tool::openStore(this->kind.place());
  ASSERT_TRUE(beside);
  const Accepted theirs{.sender = {.requestID = "theirs",
                                   .app = "trail-maps",
                                   .clientID = "client-1",
                                   .isTester = true},
                        .batch = {.requestTimestamp = 1500,
                                  .events = {anyEvent("a", 30), anyEvent("b", 20)},
                                  .textBytes = 1}};
  (*beside)->store(theirs, receivedAt);
  EXPECT_TRUE(this->store->hasSeen("theirs"));
  const auto ours = this->add({anyEvent("b", 20), anyEvent("c", 10)});
  EXPECT_EQ(ours.newEvents, 1U);
  EXPECT_EQ(ours.duplicates, 1U);
  EXPECT_EQ(ours.newestTimestamp, 30);
  EXPECT_THAT(this->allIDs(), ElementsAre("a", "b", "c"));
}

TYPED_TEST(EventStoreContract, scansMoreEventsThanFitInOnePiece) {
  std::vector<ReceivedEvent> events;
  for (int i = 0; i < 1200; ++i) events.push_back(anyEvent("event " + std::to_string(i)));
  this->add(events);
  const auto rising = this->allIDs();
  ASSERT_EQ(rising.size(), 1200U);
  EXPECT_EQ(rising.back(), "event 1199");
  auto falling = this->ids(this->reader->events(), Order::newestFirst);
  std::ranges::reverse(falling);
  EXPECT_EQ(falling, rising);
}

TYPED_TEST(EventStoreContract, takesWhateverTextsAClientSends) {
  const std::string odd = R"({"text":"\u0000 \\u0000","small":1e-400,"key\u0000":[-0.0,1e308]})";
  const std::string client = std::string(5000, 'c') + "\xFF";
  EXPECT_EQ(this->add({anyEvent("a", aTime, "Purchase", odd)}, client).newEvents, 1U);
  EXPECT_EQ(this->add({anyEvent("a", aTime, "Purchase", odd)}, client).duplicates, 1U);
  RequestRecord request = aRefusal();
  request.path = "/\xFF";
  this->record(request);
  EXPECT_NE(this->reader->requests().last, 0);
}

/// Events of one day, 1970-01-01, as the views show them.
TYPED_TEST(EventStoreContract, showsPeopleWhatHappened) {
  this->add({anyEvent("i", 1, "Install", R"({"new_app_version":"1"})"), sessionStart("s", 10),
             action("a", 12, "s"), action("b", 13, "s"), sessionEnd("s", 20)});
  this->add({anyEvent("u", 2, "Install", R"({"new_app_version":"2","old_app_version":"1"})"),
             action("c", 90'000, "s"), sessionEnd("t", 30, /*crashed=*/true, "5")},
            "client-2");
  const auto& database = this->kind;
  EXPECT_EQ(database.query("SELECT day, clients, events FROM daily_active_clients"),
            "1970-01-01 2 8\n")
      << "an event does not happen after it was received";
  EXPECT_EQ(database.query("SELECT name, actions, clients FROM actions_by_name"), "buy 3 2\n");
  EXPECT_EQ(database.query("SELECT day, installs, updates FROM installs_and_updates"),
            "1970-01-01 1 1\n");
  EXPECT_EQ(database.query("SELECT day, sessions, crashes, rate FROM crash_rate"),
            "1970-01-01 2 1 0.5\n");
  EXPECT_EQ(database.query("SELECT id, client_id, events FROM sessions WHERE started = 10"),
            "s client-1 4\n");
}

}  // namespace
}  // namespace kite::test
