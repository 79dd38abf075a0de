#include "Counts/Anywhere/CountedNumbers.h"
#include "Fixture/ReferenceEvent.h"
#include "Fixture/StartedHost.h"
#include "Support/FakeURLSession.h"
#include "Support/TemporaryFolder.h"

#include <gtest/gtest.h>

namespace kite::test {
namespace {

constexpr double knownNumber = 7531.902468;

struct EncodeCountTests : testing::Test {
  bench::HandDrivenHost startHost() {
    return bench::HandDrivenHost({.folder = folder.path(), .network = network.urlSession()});
  }
  static void trackPrice(bench::HandDrivenHost& host) {
    host->kite().trackUserAction("buy", {{"price", knownNumber}});
    host->settleStorage();
  }
  void expectDelivered(bench::HandDrivenHost& host) {
    network.respond(answers(200));
    host.upload();
    host.flush();
    EXPECT_EQ(host->storedEvents(), 0U);
  }

  TemporaryFolder folder;
  FakeURLSession network{fails()};
  CountedNumber encodings{knownNumber};
};

TEST_F(EncodeCountTests, anEventIsEncodedOnceFromItsTrackingToItsDelivery) {
  auto host = startHost();
  trackPrice(host);
  host.flush();
  host.upload();
  host.upload();
  expectDelivered(host);
  EXPECT_EQ(encodings.timesWritten(), 1U);
}

TEST_F(EncodeCountTests, anEventWrittenThroughInTheBackgroundIsEncodedOnce) {
  auto host = startHost();
  host->enterBackground();
  trackPrice(host);
  EXPECT_GT(host->storedEvents(), 0U);
  EXPECT_EQ(encodings.timesWritten(), 1U);
}

TEST_F(EncodeCountTests, anEventOfAnEarlierRunIsNotEncodedAgain) {
  {
    auto host = startHost();
    trackPrice(host);
    host.flush();
  }
  auto host = startHost();
  host.upload();
  expectDelivered(host);
  EXPECT_EQ(encodings.timesWritten(), 1U);
}

TEST_F(EncodeCountTests, aProfileIsEncodedOnceForAllEventsThatShareIt) {
  auto host = startHost();
  host->kite().updateUserInfo({{"balance", knownNumber}});
  host->settleStorage();
  host->track(1);
  host->settleStorage();
  const auto afterTheFirst = encodings.timesWritten();
  host->track(100);
  host->settleStorage();
  host.flush();
  expectDelivered(host);
  EXPECT_GT(afterTheFirst, 0U);
  EXPECT_EQ(encodings.timesWritten(), afterTheFirst);
}

}  // namespace
}  // namespace kite::test
