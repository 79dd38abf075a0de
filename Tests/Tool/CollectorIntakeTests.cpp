#include "Collector/Intake.h"

#include "CollectorDatabase.h"
#include "CollectorRequests.h"
#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <functional>

namespace kite::test {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;
using tool::Intake;
using tool::Outcome;
using tool::ReceivedRequest;

class CollectorIntake : public ::testing::Test {
 protected:
  CollectorIntake() { restart(); }

  void restart() {
    intake.reset();
    auto store = tool::openStore(file);
    ASSERT_TRUE(store) << store.error();
    intake = std::make_unique<Intake>(key, *std::move(store));
  }

  Outcome receive(const ReceivedRequest& request, double at = now) {
    return intake->receive(request, at);
  }

  Outcome receive(const std::vector<std::string>& events, const std::string& requestID) {
    return receive(aRequest(aBody(events), requestID));
  }

  TemporaryFolder folder;
  const std::string file = folder.path() / "events.db";
  std::unique_ptr<Intake> intake;
};

std::string eventAt(const std::string& timestamp, std::string_view id = anID) {
  return replaced(aCustomEvent(id), "1765432100.5", timestamp);
}

TEST_F(CollectorIntake, answersWithTheDeltaAndTheNewestTimestamp) {
  const Outcome outcome =
      receive({eventAt("1765432100.5"), eventAt("1765432050", anotherID)}, aRequestID);
  EXPECT_EQ(outcome.reply.status, 200);
  EXPECT_EQ(outcome.reply.body, R"({"delta":0.25,"last_event_timestamp":1765432100.5})");
}

TEST_F(CollectorIntake, answersInRealNumbersEvenWhenTheyAreWhole) {
  const Outcome outcome = receive(aRequest(aBody({eventAt("1765432100")})), 1765432203);
  EXPECT_EQ(outcome.reply.body, R"({"delta":3.0,"last_event_timestamp":1765432100.0})");
}

TEST_F(CollectorIntake, answersInJSON) {
  const Outcome outcome = receive({aCustomEvent()}, aRequestID);
  ASSERT_EQ(outcome.reply.headers.size(), 1U);
  EXPECT_EQ(outcome.reply.headers[0].name, "Content-Type");
  EXPECT_EQ(outcome.reply.headers[0].value, "application/json");
}

TEST_F(CollectorIntake, storesEveryColumnOfAnEvent) {
  receive({anEvent("Purchase", R"({"price": 9.50})")}, aRequestID);
  EXPECT_EQ(query(file,
                  "SELECT id, type, timestamp, request_timestamp, received_at, app, client_id, "
                  "tester, user_info, user_ids, data, duplicates FROM events"),
            std::string(anID) +
                " Purchase 1765432100.5 1765432200.0 1765432200.25 trail-maps client-1 1 "
                R"({"country":"NZ"} {"user_id":"u1"} {"price": 9.50} 0)"
                "\n");
}

TEST_F(CollectorIntake, storesUsersAsNoTesters) {
  ReceivedRequest request = aRequest(aBody({aCustomEvent()}));
  header(request, "Kite-Tester").value = "false";
  receive(request);
  EXPECT_EQ(query(file, "SELECT tester FROM events"), "0\n");
}

TEST_F(CollectorIntake, countsAnEventThatComesAgain) {
  receive({aCustomEvent()}, aRequestID);
  const Outcome again = receive({aCustomEvent(), aCustomEvent(anotherID)}, anotherRequestID);
  EXPECT_EQ(again.reply.status, 200);
  EXPECT_EQ(again.report.newEvents, 1U);
  EXPECT_EQ(again.report.duplicates, 1U);
  EXPECT_EQ(query(file, "SELECT id, duplicates FROM events ORDER BY id"),
            std::string(anID) + " 1\n" + anotherID + " 0\n");
}

TEST_F(CollectorIntake, keepsTheFirstOfTwoEventsOfOneID) {
  receive({anEvent("Purchase", R"({"first":true})")}, aRequestID);
  receive({anEvent("Refund", R"({"first":false})")}, anotherRequestID);
  EXPECT_EQ(query(file, "SELECT type, data FROM events"), "Purchase {\"first\":true}\n");
}

TEST_F(CollectorIntake, countsAnEventTwiceInOneBatchOnce) {
  const Outcome outcome = receive({aCustomEvent(), aCustomEvent()}, aRequestID);
  EXPECT_EQ(outcome.report.newEvents, 1U);
  EXPECT_EQ(outcome.report.duplicates, 1U);
}

TEST_F(CollectorIntake, remembersTheNewestTimestampOfAClient) {
  receive({eventAt("1765432100.5")}, aRequestID);
  restart();
  const Outcome later = receive({eventAt("1765432000.5", anotherID)}, anotherRequestID);
  EXPECT_THAT(later.reply.body, HasSubstr(R"("last_event_timestamp":1765432100.5)"));
}

TEST_F(CollectorIntake, keepsTheNewestTimestampsOfClientsApart) {
  receive({eventAt("1765432100.5")}, aRequestID);
  ReceivedRequest other = aRequest(aBody({eventAt("1765432000.5", anotherID)}), anotherRequestID);
  header(other, "Kite-Client-ID").value = "client-2";
  EXPECT_THAT(receive(other).reply.body, HasSubstr(R"("last_event_timestamp":1765432000.5)"));
}

TEST_F(CollectorIntake, refusesARequestIDSeenBefore) {
  receive({aCustomEvent()}, aRequestID);
  const Outcome again = receive({aCustomEvent()}, aRequestID);
  EXPECT_EQ(again.reply.status, 400);
  EXPECT_EQ(again.reply.body, R"({"error_code":601,"message":"the request id was used before"})");
  EXPECT_EQ(query(file, "SELECT duplicates FROM events"), "0\n");
}

TEST_F(CollectorIntake, refusesARequestIDSeenBeforeARestart) {
  receive({aCustomEvent()}, aRequestID);
  restart();
  EXPECT_EQ(receive({aCustomEvent()}, aRequestID).report.errorCode, 601);
}

TEST_F(CollectorIntake, usesUpTheIDOfARequestThatItRefusedForItsBody) {
  EXPECT_EQ(receive(aRequestOf("no gzip")).report.errorCode, 102);
  EXPECT_EQ(receive({aCustomEvent()}, aRequestID).report.errorCode, 601);
  EXPECT_EQ(query(file, "SELECT request_id, status, error_code FROM requests"),
            std::string(aRequestID) + " 422 102\n");
}

TEST_F(CollectorIntake, doesNotUseUpAnIDForAWrongSignature) {
  ReceivedRequest forged = aRequest(aBody({aCustomEvent()}));
  header(forged, "Wicket-Signature").value = "00";
  EXPECT_EQ(receive(forged).report.errorCode, 603);
  EXPECT_EQ(receive({aCustomEvent()}, aRequestID).reply.status, 200);
}

TEST_F(CollectorIntake, doesNotUseUpAnIDForAnOldRequest) {
  EXPECT_EQ(receive(aRequest(aBody({aCustomEvent()})), now + 601).report.errorCode, 601);
  EXPECT_EQ(receive({aCustomEvent()}, aRequestID).reply.status, 200);
}

TEST_F(CollectorIntake, storesNothingOfABatchWithOneBadEvent) {
  const std::string bad = replaced(aCustomEvent(anotherID), "trail-maps", "other");
  const Outcome outcome = receive({aCustomEvent(), bad}, aRequestID);
  EXPECT_EQ(outcome.reply.status, 422);
  EXPECT_EQ(outcome.reply.body, R"({"error_code":101,"message":"event )" + std::string(anotherID) +
                                    R"(: app must be the Lumo-Id"})");
  EXPECT_EQ(query(file, "SELECT count(*) FROM events"), "0\n");
}

TEST_F(CollectorIntake, keepsWhatItAcknowledgedThoughItNeverEndsProperly) {
  receive({aCustomEvent()}, aRequestID);
  const std::string copy =
      folder.path() / "copy.db";  // of the files as a killed process leaves them
  std::filesystem::copy_file(file, copy);
  std::filesystem::copy_file(file + "-wal", copy + "-wal");
  EXPECT_EQ(query(copy, "SELECT id FROM events"), std::string(anID) + "\n");
  EXPECT_EQ(query(copy, "SELECT request_id FROM requests"), std::string(aRequestID) + "\n");
}

/// The event that SQLite is told to choke on.
constexpr const char* choke = R"(
  CREATE TRIGGER choke BEFORE INSERT ON events WHEN new.id LIKE 'E2A59A80%'
  BEGIN SELECT raise(ABORT, 'disk full'); END)";

TEST_F(CollectorIntake, acknowledgesNothingWhenTheDatabaseFails) {
  query(file, choke);
  const Outcome outcome = receive({aCustomEvent(), aCustomEvent(anotherID)}, aRequestID);
  EXPECT_EQ(outcome.reply.status, 500);
  EXPECT_EQ(outcome.reply.body, R"({"error_code":0,"message":"the database failed: disk full"})");
  EXPECT_EQ(query(file, "SELECT count(*) FROM events"), "0\n");
}

TEST_F(CollectorIntake, doesNotUseUpAnIDWhenTheDatabaseFails) {
  query(file, choke);
  receive({aCustomEvent(), aCustomEvent(anotherID)}, aRequestID);
  query(file, "DROP TRIGGER choke");
  EXPECT_EQ(receive({aCustomEvent(), aCustomEvent(anotherID)}, aRequestID).reply.status, 200);
}

TEST_F(CollectorIntake, answersAFailureOfTheDatabaseBeforeItLooksIntoTheBody) {
  query(file, "DROP TABLE requests");
  EXPECT_EQ(receive({aCustomEvent()}, aRequestID).reply.status, 500);
}

/// A store that other collectors share.
class SharedStore : public tool::EventStore {
 public:
  explicit SharedStore(std::function<tool::Stored()> answer) : _answer(std::move(answer)) {}
  bool hasSeen(const std::string&) override { return false; }
  tool::Stored store(const tool::Accepted&, double) override { return _answer(); }
  void remember(const tool::Sender&, const tool::Refusal&, double) override {}
  void record(const tool::RequestRecord&, std::string_view) override {}
  std::int64_t clear() override { return 0; }

 private:
  std::function<tool::Stored()> _answer;
};

Outcome receiveInto(std::function<tool::Stored()> answer) {
  Intake intake(key, std::make_unique<SharedStore>(std::move(answer)));
  return intake.receive(aRequest(aBody({aCustomEvent()})), now);
}

TEST(CollectorIntakeOfASharedStore, refusesARequestIDThatAnotherCollectorSawMeanwhile) {
  const Outcome outcome = receiveInto([] { return tool::Stored{.isReplay = true}; });
  EXPECT_EQ(outcome.reply.status, 400);
  EXPECT_EQ(outcome.report.errorCode, 601);
  EXPECT_EQ(outcome.report.newEvents, 0U);
}

TEST(CollectorIntakeOfASharedStore, saysThatTheStoreIsAway) {
  const Outcome outcome =
      receiveInto([]() -> tool::Stored { throw tool::StoreAway("no answer in time"); });
  EXPECT_EQ(outcome.reply.status, 503);
  EXPECT_EQ(outcome.reply.body,
            R"({"error_code":0,"message":"the database is away: no answer in time"})");
}

TEST_F(CollectorIntake, reportsWhatItAccepted) {
  const Outcome outcome = receive({aCustomEvent()}, aRequestID);
  EXPECT_EQ(outcome.report.method, "POST");
  EXPECT_EQ(outcome.report.path, "/v4/events");
  EXPECT_EQ(outcome.report.status, 200);
  EXPECT_EQ(outcome.report.errorCode, std::nullopt);
  EXPECT_EQ(outcome.report.message, std::nullopt);
  EXPECT_EQ(outcome.report.newEvents, 1U);
  EXPECT_EQ(outcome.report.duplicates, 0U);
}

TEST_F(CollectorIntake, keepsItsFileFromOthers) {
  using std::filesystem::perms;
  EXPECT_EQ(std::filesystem::status(file).permissions(), perms::owner_read | perms::owner_write);
}

TEST(CollectorDatabase, isRefusedWhenItCannotBeOpened) {
  const TemporaryFolder folder;
  const auto store = tool::openStore(folder.path() / "absent/events.db");
  ASSERT_FALSE(store);
  EXPECT_THAT(store.error(), StartsWith("cannot use the database "));
}

TEST(CollectorDatabase, isRefusedWhenItsTablesAreOthers) {
  const TemporaryFolder folder;
  const std::string file = folder.path() / "events.db";
  ASSERT_TRUE(tool::openStore(file));
  query(file, "DROP TABLE events; CREATE TABLE events(name)");
  EXPECT_FALSE(tool::openStore(file));
}

}  // namespace
}  // namespace kite::test
