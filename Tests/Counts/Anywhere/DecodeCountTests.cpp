#include "Counts/Anywhere/CountedParsers.h"
#include "Fixture/ReferenceEvent.h"
#include "Fixture/StartedHost.h"
#include "Support/FakeURLSession.h"
#include "Support/TemporaryFolder.h"

#include <gtest/gtest.h>

namespace kite::test {
namespace {

struct DecodeCountTests : testing::Test {
  DecodeCountTests() { CountedParsers::made(); }

  /// By tracking, flushing and uploading.
  std::uint64_t decodings() {
    const auto before = CountedParsers::made();
    host->track(100);
    host->settleStorage();
    host.flush();
    host.upload();
    return CountedParsers::made() - before;
  }

  TemporaryFolder folder;
  FakeURLSession network{answersWithoutBody(200)};
  bench::HandDrivenHost host{{.folder = folder.path(), .network = network.urlSession()}};
};

TEST_F(DecodeCountTests, nothingIsDecodedWhileSessionAndProfileDoNotChange) {
  host->track(1);
  EXPECT_EQ(decodings(), 0U);
}

TEST_F(DecodeCountTests, aChangedProfileIsDecodedOnce) {
  host->track(1);
  const auto before = CountedParsers::made();
  host->kite().addUserInfo("plan", "monthly");
  EXPECT_EQ(decodings(), 0U);
  EXPECT_EQ(CountedParsers::made() - before, 1U);
}

TEST_F(DecodeCountTests, aChangedSessionIsDecodedOnce) {
  host->track(1);
  host->kite().addSessionData("source", "link");
  EXPECT_EQ(decodings(), 1U);
}

TEST_F(DecodeCountTests, theLastForegroundSessionIsDecodedOnceInTheBackground) {
  host->enterBackground();
  EXPECT_EQ(decodings(), 1U);
  EXPECT_EQ(decodings(), 0U);
}

}  // namespace
}  // namespace kite::test
