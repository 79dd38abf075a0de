#include "Collector/Checks/RequestCheck.h"

#include "CollectorRequests.h"

#include <gmock/gmock.h>

namespace kite::test {
namespace {

using tool::check;
using tool::Refusal;
using tool::Verdict;

Refusal refusalOf(const Verdict& verdict) { return verdict ? Refusal{0, 0, ""} : verdict.error(); }

TEST(CollectorRequestCheck, acceptsARequestInOrder) {
  const Verdict verdict = check(aRequest(aBody({aCustomEvent()})), key, now);
  ASSERT_TRUE(verdict);
  EXPECT_EQ(verdict->sender.requestID, aRequestID);
  ASSERT_EQ(verdict->batch.events.size(), 1U);
  EXPECT_EQ(verdict->batch.events[0].id, anID);
}

TEST(CollectorRequestCheck, doesNotUnpackWhatIsNotAuthentic) {
  auto request = aRequestOf("no gzip");
  header(request, "Wicket-Signature").value = "00";
  EXPECT_EQ(refusalOf(check(request, key, now)).code, 603);
}

TEST(CollectorRequestCheck, refusesABodyThatIsNotGzip) {
  EXPECT_EQ(refusalOf(check(aRequestOf(aBody({aCustomEvent()})), key, now)),
            (Refusal{422, 102, "the body: not a gzip stream"}));
}

TEST(CollectorRequestCheck, refusesABodyBeyondSixteenMebibytes) {
  const std::size_t limit = 16 * 1024 * 1024;
  EXPECT_EQ(refusalOf(check(aRequestOf(std::string(limit, 'x')), key, now)).message,
            "the body: not a gzip stream");
  EXPECT_EQ(refusalOf(check(aRequestOf(std::string(limit + 1, 'x')), key, now)),
            (Refusal{422, 102, "the body has more than 16777216 bytes"}));
}

TEST(CollectorRequestCheck, refusesABodyThatInflatesBeyondSixtyFourMebibytes) {
  const std::string spaces(64 * 1024 * 1024 + 1, ' ');
  EXPECT_EQ(refusalOf(check(aRequest(spaces), key, now)),
            (Refusal{422, 102, "the body: inflates to more than 67108864 bytes"}));
}

TEST(CollectorRequestCheck, holdsTheEventsAgainstTheLumoIDOfTheHeader) {
  auto request = aRequest(aBody({aCustomEvent()}));
  header(request, "Lumo-Id").value = "another-app";
  EXPECT_EQ(refusalOf(check(request, key, now)),
            (Refusal{422, 101, "event " + std::string(anID) + ": app must be the Lumo-Id"}));
}

}  // namespace
}  // namespace kite::test
