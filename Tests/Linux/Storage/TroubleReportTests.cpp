#include "Linux/Storage/TroubleReport.h"

#include "Support/FakeSystem.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kite::Linux {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class TroubleReportTests : public testing::Test {
 protected:
  void passSeconds(double seconds) { system.setNow(system.now() + seconds); }

  const std::string trouble = "[KITE] The store cannot be saved, values stay in memory: full";
  const std::string over = "[KITE] The store is saved again";
  test::FakeSystem system;
  TroubleReport report{system.system(), "store"};
};

TEST_F(TroubleReportTests, tellsOfTroubleThatComesAndGoesOnceAMinute) {
  for (int i = 0; i < 3; ++i) {
    report.goesOn("full");
    report.isOver();
  }
  EXPECT_THAT(system.lines(), ElementsAre(trouble, over));
  passSeconds(60);
  report.goesOn("full");
  EXPECT_EQ(system.lines().size(), 3u);
}

TEST_F(TroubleReportTests, isNotSilencedByAClockThatIsPutBack) {
  report.goesOn("full");
  passSeconds(-3600);
  report.goesOn("full");
  EXPECT_THAT(system.lines(), ElementsAre(trouble, trouble));
}

TEST_F(TroubleReportTests, tellsOfTheEndOfTroubleThatAnotherLineHasTold) {
  report.wasTold();
  report.begins("full");
  report.goesOn("full");
  EXPECT_THAT(system.lines(), IsEmpty());
  report.isOver();
  EXPECT_THAT(system.lines(), ElementsAre(over));
}

TEST_F(TroubleReportTests, tellsOfLastingTroubleOnce) {
  report.begins("full");
  passSeconds(3600);
  report.begins("full");
  EXPECT_THAT(system.lines(), ElementsAre(trouble));
}

}  // namespace
}  // namespace kite::Linux
