#include "Host/Runner.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kite::tool {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

HostOptions inert() {
  HostOptions options;
  options.isNoop = true;
  return options;
}

/// A runner over the facade that does nothing, so that only the lines matter.
class RunnerTests : public testing::Test {
 protected:
  std::string answer(std::string text) { return runner.answer({.text = std::move(text)}).text; }

  Host host{inert()};
  Runner runner{host, "a script"};
};

TEST_F(RunnerTests, answersAnOperation) {
  EXPECT_EQ(answer(R"({"op":"trackUserAction","name":"buy","data":{}})"), R"({"ok":true})");
  EXPECT_EQ(answer(R"({"op":"start"})"), R"({"ok":true})");
  EXPECT_EQ(answer(R"({"op":"didEnterBackground"})"), R"({"ok":true})");
  EXPECT_EQ(answer(R"({"op":"willEnterForeground"})"), R"({"ok":true})");
}

TEST_F(RunnerTests, hasNoStorageToWaitForWithoutALibraryThatWasStarted) {
  EXPECT_EQ(answer(R"({"op":"awaitStorage"})"), R"({"ok":true})");
}

TEST_F(RunnerTests, answersAReadWithItsValue) {
  EXPECT_EQ(answer(R"({"op":"userInfo"})"), R"({"ok":true,"value":{}})");
  EXPECT_EQ(answer(R"({"op":"firstInstallTimestamp"})"), R"({"ok":true,"value":null})");
  EXPECT_EQ(answer(R"({"op":"installedBeforeKite"})"), R"({"ok":true,"value":false})");
}

TEST_F(RunnerTests, answersWithAnErrorAndGoesOn) {
  for (const auto* line : {"", "x", "[]", "{}", R"({"op":1})", R"({"op":"fly"})",
                           R"({"op":"start","now":true})", R"({"op":"userInfo","key":"a"})"})
    EXPECT_THAT(answer(line), StartsWith(R"({"ok":false,"error":")")) << line;
  EXPECT_EQ(answer(R"({"op":"start"})"), R"({"ok":true})");
}

TEST_F(RunnerTests, saysWhatIsWrong) {
  EXPECT_EQ(answer(R"({"op":"fly"})"), R"({"ok":false,"error":"unknown op \"fly\""})");
  EXPECT_EQ(answer("{}"), R"({"ok":false,"error":"\"op\" is missing"})");
  EXPECT_EQ(answer("[]"), R"({"ok":false,"error":"a line must be a JSON object"})");
}

TEST_F(RunnerTests, refusesALineThatIsTooLong) {
  EXPECT_EQ(runner.answer({.text = "", .isTooLong = true}).text,
            R"({"ok":false,"error":"a line may have at most 1048576 bytes"})");
}

TEST_F(RunnerTests, refusesALineThatNestsTooDeeply) {
  EXPECT_THAT(answer(R"({"op":"addUserInfo","key":"a","value":)" + std::string(500, '[') +
                     std::string(500, ']') + "}"),
              HasSubstr("nested deeper than"));
}

TEST_F(RunnerTests, refusesATriggerWhenSessionsAreAutomatic) {
  EXPECT_THAT(answer(R"({"op":"triggerSessionStart"})"), HasSubstr("--sessions manual"));
  EXPECT_THAT(answer(R"({"op":"triggerSessionEnd"})"), HasSubstr("--sessions manual"));
}

TEST_F(RunnerTests, triggersManualSessions) {
  auto options = inert();
  options.hasManualSessions = true;
  Host manual(options);
  int starts = 0;
  int ends = 0;
  manual.manualSessions()->witness.onSessionStart([&] { ++starts; });
  manual.manualSessions()->witness.onSessionEnd([&] { ++ends; });
  Runner lines(manual, "");
  EXPECT_EQ(lines.answer({.text = R"({"op":"triggerSessionStart"})"}).text, R"({"ok":true})");
  EXPECT_EQ(starts, 1);
  EXPECT_EQ(lines.answer({.text = R"({"op":"triggerSessionEnd"})"}).text, R"({"ok":true})");
  EXPECT_EQ(ends, 1);
}

TEST_F(RunnerTests, refusesAWaitThatMakesNoSense) {
  EXPECT_EQ(answer(R"({"op":"wait","seconds":0})"), R"({"ok":true})");
  for (const auto* line : {R"({"op":"wait"})", R"({"op":"wait","seconds":"1"})",
                           R"({"op":"wait","seconds":-1})", R"({"op":"wait","seconds":86401})"})
    EXPECT_THAT(answer(line), StartsWith(R"({"ok":false)")) << line;
}

TEST_F(RunnerTests, answersBeforeItQuitsOrCrashes) {
  const auto quit = runner.answer({.text = R"({"op":"quit"})"});
  EXPECT_EQ(quit.text, R"({"ok":true})");
  EXPECT_EQ(quit.next, Next::quit);
  const auto crash = runner.answer({.text = R"({"op":"crash"})"});
  EXPECT_EQ(crash.text, R"({"ok":true})");
  EXPECT_EQ(crash.next, Next::crash);
  EXPECT_EQ(runner.answer({.text = R"({"op":"start"})"}).next, Next::goOn);
}

}  // namespace
}  // namespace kite::tool
