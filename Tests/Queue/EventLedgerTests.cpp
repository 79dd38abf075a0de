#include "Queue/EventLedger.h"

#include <gmock/gmock.h>

#include <cstdint>
#include <limits>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace kite::test {
namespace {

const std::vector<DropReason> allReasons{
    &DroppedEvents::noConsent,    &DroppedEvents::notStarted,    &DroppedEvents::inBackground,
    &DroppedEvents::notEncodable, &DroppedEvents::notUploadable, &DroppedEvents::lostOnDisk};

/// Three delivered, of each reason one or more, no two alike; nothing pending.
constexpr const char* fullNote =
    R"({"tracked":30,"delivered":3,"dropped":{"noConsent":1,"notStarted":2,"inBackground":4,)"
    R"("notEncodable":5,"notUploadable":7,"lostOnDisk":8}})";
const Ledger fullCounts{.tracked = 30, .pending = 0, .delivered = 3, .dropped = {1, 2, 4, 5, 7, 8}};

Ledger loaded(std::string_view note, std::uint64_t pending) {
  EventLedger ledger;
  ledger.load(note, pending);
  auto counts = ledger.counts();
  counts.pending = pending;
  return counts;
}

bool addsUp(const Ledger& counts) {
  return counts.tracked == counts.pending + counts.delivered + counts.dropped.total();
}

TEST(EventLedgerTests, countsADropByItsReasonAndAsTracked) {
  for (const auto reason : allReasons) {
    EventLedger ledger;
    ledger.drop(reason);
    DroppedEvents one;
    one.*reason = 1;
    EXPECT_EQ(ledger.counts(), (Ledger{.tracked = 1, .dropped = one}));
  }
}

TEST(EventLedgerTests, theTotalOfTheDropsHoldsEveryReasonOnce) {
  for (const auto reason : allReasons) {
    DroppedEvents one;
    one.*reason = 1;
    EXPECT_EQ(one.total(), 1U);
  }
}

TEST(EventLedgerTests, whatLeavesTheQueueWasDeliveredButForWhatCouldNotBe) {
  EventLedger ledger;
  for (int i = 0; i < 10; ++i) ledger.append();
  ledger.remove({.notEncodable = 2, .lostOnDisk = 3, .others = 5});
  EXPECT_EQ(
      ledger.counts(),
      (Ledger{.tracked = 10, .delivered = 5, .dropped = {.notEncodable = 2, .lostOnDisk = 3}}));
  EXPECT_EQ(ledger.deliveredInThisRun(), 5U);
}

TEST(EventLedgerTests, nothingOfABatchThatWasNotSentCountsAsDelivered) {
  EventLedger ledger;
  for (int i = 0; i < 10; ++i) ledger.append();
  ledger.remove({.notEncodable = 2, .lostOnDisk = 3, .others = 5, .wereSent = false});
  EXPECT_EQ(
      ledger.counts(),
      (Ledger{.tracked = 10, .dropped = {.notEncodable = 2, .notUploadable = 5, .lostOnDisk = 3}}));
  EXPECT_EQ(ledger.deliveredInThisRun(), 0U);
}

TEST(EventLedgerTests, aNoteHoldsAllCounts) {
  EventLedger ledger;
  ledger.load(fullNote, 0);
  EXPECT_EQ(ledger.note(), fullNote);
  EXPECT_EQ(loaded(ledger.note(), 0), fullCounts);
}

TEST(EventLedgerTests, goesOnWhereAnEarlierRunStopped) {
  EventLedger ledger;
  ledger.load(fullNote, 0);
  ledger.append();
  ledger.remove({.others = 1});
  EXPECT_EQ(ledger.counts().tracked, 31U);
  EXPECT_EQ(ledger.counts().delivered, 4U);
  EXPECT_EQ(ledger.deliveredInThisRun(), 1U);
}

TEST(EventLedgerTests, whatTheNoteKnowsAndTheQueueDoesNotIsLostOnDisk) {
  const auto counts = loaded(R"({"tracked":10,"delivered":3,"dropped":{"noConsent":1}})", 4);
  EXPECT_EQ(counts, (Ledger{.tracked = 10,
                            .pending = 4,
                            .delivered = 3,
                            .dropped = {.noConsent = 1, .lostOnDisk = 2}}));
}

TEST(EventLedgerTests, whatOnlyTheQueueKnowsWasTracked) {
  EXPECT_EQ(loaded("", 4), (Ledger{.tracked = 4, .pending = 4}));
  EXPECT_EQ(loaded(R"({"tracked":5,"delivered":3})", 4),
            (Ledger{.tracked = 7, .pending = 4, .delivered = 3}));
}

TEST(EventLedgerTests, dropsBeforeTheLoadStay) {
  EventLedger ledger;
  for (const auto reason : allReasons) ledger.drop(reason);
  ledger.load(fullNote, 2);
  EXPECT_EQ(ledger.counts(),
            (Ledger{.tracked = 38, .delivered = 3, .dropped = {2, 3, 5, 6, 8, 9}}));
}

TEST(EventLedgerTests, aSecondLoadGoesOnWithItsOwnQueueAlone) {
  EventLedger ledger;
  ledger.drop(&DroppedEvents::notStarted);
  ledger.load(fullNote, 0);
  ledger.append();
  ledger.remove({.others = 1});
  ledger.load(R"({"tracked":2,"delivered":1})", 1);
  EXPECT_EQ(ledger.counts(), (Ledger{.tracked = 2, .delivered = 1}));
  EXPECT_EQ(ledger.deliveredInThisRun(), 1U);
}

TEST(EventLedgerTests, whateverANoteHoldsTheCountsAddUp) {
  const auto most = std::to_string(std::numeric_limits<std::int64_t>::max());
  for (const std::string note :
       {R"()", R"({)", R"([])", R"("tracked")", R"({"tracked":null})", R"({"tracked":"10"})",
        R"({"tracked":1.5})", R"({"tracked":-5,"delivered":-7})", R"({"tracked":1,"delivered":9})",
        R"({"delivered":18446744073709551615})", R"({"tracked":3,"dropped":7})",
        R"({"tracked":10,"tracked":3})"}) {
    const auto counts = loaded(note, 2);
    EXPECT_TRUE(addsUp(counts)) << note;
    EXPECT_LE(counts.delivered, 9U) << note;
  }
  EXPECT_TRUE(addsUp(loaded(R"({"tracked":)" + most + "}", 2)));
  EXPECT_TRUE(
      addsUp(loaded(R"({"delivered":)" + most + R"(,"dropped":{"noConsent":)" + most + "}}", 2)));
}

TEST(EventLedgerTests, countsWhatSeveralThreadsDo) {
  EventLedger ledger;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([&] {
      for (int k = 0; k < 1000; ++k) {
        ledger.append();
        ledger.drop(&DroppedEvents::noConsent);
        ledger.remove({.others = 1});
      }
    });
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(ledger.counts(),
            (Ledger{.tracked = 8000, .delivered = 4000, .dropped = {.noConsent = 4000}}));
}

}  // namespace
}  // namespace kite::test
