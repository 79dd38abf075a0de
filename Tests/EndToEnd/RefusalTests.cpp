#include "EndToEnd/Host.h"

#include <gmock/gmock.h>

namespace kite::test {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

const Arguments inBackground{"--start-in-background"};

/// An application in the background, whose every event is on disk at once.
class RefusalTests : public testing::Test {
 protected:
  /// Waits until the three events of a first launch with one action are queued.
  std::vector<Event> threeQueued() {
    EXPECT_TRUE(eventually([&] { return queued(application.state).size() == 3; }));
    return queued(application.state);
  }
  bool logs(const std::string& text) const {
    return contents(application.log).find(text) != std::string::npos;
  }

  Application application;
};

TEST_F(RefusalTests, keepsABatchThatIsSignedWithAWrongKey) {
  const Collector collector;
  application.key = "another";
  Host host(application, collector, inBackground);
  host.start();
  host.track("kept");
  ASSERT_TRUE(eventually([&] { return collector.requests().size() >= 2; }));
  EXPECT_THAT(collector.requests(), Each(Field(&Request::status, 400)));
  EXPECT_THAT(collector.requests(), Each(Field(&Request::errorCode, 603)));
  EXPECT_TRUE(eventually([&] { return logs("[KITE] Server Error: Invalid Wicket signature"); }));
  EXPECT_THAT(threeQueued(), SizeIs(3));
  EXPECT_THAT(collector.events(), IsEmpty());
}

TEST_F(RefusalTests, sendsABatchAgainEveryTwoSecondsUntilItIsAccepted) {
  const Collector collector({.faults = {"status:500x3"}});
  Host host(application, collector, inBackground);
  host.start();
  host.track("once");
  std::vector<double> times;
  ASSERT_TRUE(eventually([&] {
    times.resize(std::max(times.size(), collector.requests().size()), now());
    return times.size() >= 4;
  }));
  for (std::size_t at = 1; at < 4; ++at) {
    EXPECT_GT(times[at] - times[at - 1], 1.2);
    EXPECT_LT(times[at] - times[at - 1], 3.5);
  }
  EXPECT_TRUE(eventually([&] { return queued(application.state).empty(); }));
  EXPECT_THAT(types(collector.events()), ElementsAre("UserInfoUpdated", "Install", "UserAction"));
  EXPECT_THAT(collector.events(), Each(Field(&Event::duplicates, 0)));
  auto statuses = collector.requests();
  statuses.resize(4);
  EXPECT_THAT(statuses, ElementsAre(Field(&Request::status, 500), Field(&Request::status, 500),
                                    Field(&Request::status, 500), Field(&Request::status, 200)));
}

TEST_F(RefusalTests, keepsABatchWhoseAnswerBreaksOff) {
  const Collector collector({.faults = {"reset", "truncate"}});
  Host host(application, collector, inBackground);
  host.start();
  host.track("once");
  EXPECT_TRUE(eventually([&] { return collector.events().size() == 3; }));
  EXPECT_TRUE(eventually([&] { return queued(application.state).empty(); }));
  EXPECT_THAT(collector.events(), Each(Field(&Event::duplicates, 0)));
}

TEST_F(RefusalTests, leavesAtOnceWhileAnUploadIsUnderWay) {
  const Collector collector({.faults = {"delay:60000"}});
  Host host(application, collector, inBackground);
  host.start();
  host.track("kept");
  threeQueued();
  const auto before = now();
  host.quit();
  EXPECT_LT(now() - before, 5);
  EXPECT_THAT(queued(application.state), SizeIs(3));
}

TEST_F(RefusalTests, doesNotFollowARedirectAwayFromTLS) {
  const SilentPort plain;
  const Collector collector({.faults = {"redirect:" + plain.plainURL() + "x100"}});
  Host host(application, collector, inBackground);
  host.start();
  host.track("kept");
  ASSERT_TRUE(eventually([&] { return collector.requests().size() >= 2; }));
  EXPECT_TRUE(eventually([&] { return logs("[KITE] \u274c ERROR: "); }));
  EXPECT_FALSE(plain.sawConnection());
  EXPECT_THAT(threeQueued(), SizeIs(3));
  EXPECT_THAT(collector.events(), IsEmpty());
}

TEST_F(RefusalTests, followsARedirectToAnotherCollectorWithTheWholeBatch) {
  const Collector target;
  const Collector collector(
      {.faults = {"redirect:" + target.url() + "x1"}, .certificates = target.certificates()});
  Host host(application, collector, inBackground);
  host.start();
  EXPECT_TRUE(eventually([&] { return collector.requests().size() == 1; }));
  // The signature is that of the first URL, so the target refuses it; but it did get the body.
  EXPECT_TRUE(eventually([&] { return target.requests().size() == 1; }));
  EXPECT_EQ(target.requests().front().errorCode, 603);
}

TEST_F(RefusalTests, sendsNothingToAServerThatItCannotTrust) {
  const Collector collector;
  const Collector other;
  Host host(application, collector.url(), other.ca(), inBackground);
  host.start();
  host.track("kept");
  EXPECT_TRUE(eventually(
      [&] { return occurrences(contents(application.log), "[KITE] Error detected: ") >= 2; }));
  EXPECT_THAT(collector.requests(), IsEmpty());
  EXPECT_THAT(threeQueued(), SizeIs(3));
}

}  // namespace
}  // namespace kite::test
