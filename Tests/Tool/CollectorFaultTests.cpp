#include "Collector/Fault.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kite::test {
namespace {

using ::testing::StartsWith;
using ::testing::TestWithParam;
using ::testing::Values;
using tool::Fault;
using tool::FaultQueue;
using tool::parseFault;
namespace faults = tool::faults;

template <class Kind>
Kind parsed(std::string_view text) {
  const auto fault = parseFault(text);
  EXPECT_TRUE(fault && std::holds_alternative<Kind>(fault->kind)) << text;
  return fault && std::holds_alternative<Kind>(fault->kind) ? std::get<Kind>(fault->kind) : Kind{};
}

TEST(CollectorFault, isAStatus) {
  EXPECT_EQ(parsed<faults::AnswerStatus>("status:503").status, 503);
  EXPECT_EQ(parsed<faults::AnswerStatus>("status:200").status, 200);
  EXPECT_EQ(parsed<faults::AnswerStatus>("status:599x3").status, 599);
}

TEST(CollectorFault, isAFile) {
  EXPECT_EQ(parsed<faults::AnswerFile>("body:/tmp/a:b.html").path, "/tmp/a:b.html");
}

TEST(CollectorFault, isADelay) {
  EXPECT_EQ(parsed<faults::Delay>("delay:1500").time, std::chrono::milliseconds(1500));
}

TEST(CollectorFault, isARedirect) {
  EXPECT_EQ(parsed<faults::Redirect>("redirect:https://127.0.0.1:8443/v4/events").url,
            "https://127.0.0.1:8443/v4/events");
}

TEST(CollectorFault, isAResetOrATruncation) {
  parsed<faults::Reset>("reset");
  parsed<faults::Truncate>("truncatex2");
}

TEST(CollectorFault, strikesOnceUnlessCounted) {
  EXPECT_EQ(parseFault("reset")->count, 1U);
  EXPECT_EQ(parseFault("resetx12")->count, 12U);
  EXPECT_EQ(parseFault("status:503x2")->count, 2U);
}

TEST(CollectorFault, takesALastXWithDigitsForTheCount) {
  const auto fault = parseFault("redirect:https://h/matrix2x3");
  EXPECT_EQ(fault->count, 3U);
  EXPECT_EQ(std::get<faults::Redirect>(fault->kind).url, "https://h/matrix2");
}

TEST(CollectorFault, isNamedAsItWasAskedForWithoutTheCount) {
  EXPECT_EQ(parseFault("status:503x2")->text, "status:503");
  EXPECT_EQ(parseFault("resetx2")->text, "reset");
}

class CollectorFaultMistakes : public TestWithParam<const char*> {};

TEST_P(CollectorFaultMistakes, areToldInOneLine) {
  const auto fault = parseFault(GetParam());
  ASSERT_FALSE(fault);
  EXPECT_THAT(fault.error(), StartsWith("\"" + std::string(GetParam()) + "\" is no fault; give "));
  EXPECT_EQ(fault.error().find('\n'), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(All, CollectorFaultMistakes,
                         Values("", "x2", "unknown", "Reset", "status", "status:", "status:199",
                                "status:600", "status:abc", "status:50 3", "status:-503", "body",
                                "body:", "delay", "delay:", "delay:1.5", "delay:-1",
                                "delay:86400001", "redirect", "redirect:", "reset:1",
                                "reset:", "truncate:half", "truncate:", "resetx0",
                                "resetx9999999999", "resetx99999999999999999999999"));

TEST(CollectorFaultQueue, isEmptyAtFirst) { EXPECT_FALSE(FaultQueue().take()); }

TEST(CollectorFaultQueue, usesFaultsUpInOrder) {
  FaultQueue queue;
  queue.add(*parseFault("status:503x2"));
  queue.add(*parseFault("reset"));
  EXPECT_EQ(queue.take()->text, "status:503");
  EXPECT_EQ(queue.take()->text, "status:503");
  EXPECT_EQ(queue.take()->text, "reset");
  EXPECT_FALSE(queue.take());
}

TEST(CollectorFaultQueue, hasNoPlaceForAFaultThatStrikesNever) {
  FaultQueue queue;
  Fault never = *parseFault("reset");
  never.count = 0;
  queue.add(never);
  EXPECT_FALSE(queue.take());
}

}  // namespace
}  // namespace kite::test
