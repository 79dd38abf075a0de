#include "Application/UploadLines.h"

#include <gmock/gmock.h>

#include <optional>
#include <string>
#include <vector>

namespace kite::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class UploadLinesTests : public testing::Test {
 protected:
  std::vector<std::string> lines;
  Linux::UploadLines uploadLines{[this](std::string_view line) { lines.emplace_back(line); }};

  void ended(std::optional<std::string> error, std::uint64_t events = 3, std::uint64_t pending = 9,
             std::string endpoint = "https://events.test") {
    uploadLines.ended({.time = {},
                       .endpoint = std::move(endpoint),
                       .error = std::move(error),
                       .events = events,
                       .pending = pending});
  }
};

TEST_F(UploadLinesTests, saysNothingWhileUploadsWork) {
  ended(std::nullopt);
  ended(std::nullopt);
  EXPECT_THAT(lines, IsEmpty());
}

TEST_F(UploadLinesTests, saysOnceThatUploadsFailAndOnceThatTheyWorkAgain) {
  ended("no route");
  ended("refused");
  ended(std::nullopt);
  ended(std::nullopt);
  ended("no route", 1, 1);
  ended(std::nullopt, 1, 0);
  EXPECT_THAT(lines,
              ElementsAre("[Kite] Uploads to https://events.test fail, 9 events pending: no route",
                          "[Kite] Uploads to https://events.test work again, 3 events delivered",
                          "[Kite] Uploads to https://events.test fail, 1 event pending: no route",
                          "[Kite] Uploads to https://events.test work again, 1 event delivered"));
}

/// It says nothing of the network.
TEST_F(UploadLinesTests, saysOfEveryBatchWithoutARequestThatItWasDropped) {
  ended("no route");
  ended("none could be sent", 2, 0, "");
  ended("none could be sent", 1, 0, "");
  ended("no route");
  EXPECT_THAT(lines,
              ElementsAre("[Kite] Uploads to https://events.test fail, 9 events pending: no route",
                          "[Kite] Dropped 2 events: none could be sent",
                          "[Kite] Dropped 1 event: none could be sent"));
}

}  // namespace
}  // namespace kite::test
