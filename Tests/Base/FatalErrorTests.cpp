#include <Kite/Base/FatalError.h>

#include "Base/CurrentOperation.h"
#include "Support/CatchFatalErrors.h"

#include <gtest/gtest.h>

#include <string>

namespace kite::test {
namespace {

class FatalErrorDeathTests : public ::testing::Test {
 protected:
  void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

void ignore(std::string_view, const SourceLocation&) {}

TEST_F(FatalErrorDeathTests, stopsTheProcessAndSaysWhyAndWhere) {
  EXPECT_EXIT(fatalError("Call start before using Kite", {"Kite", "", 41}),
              ::testing::KilledBySignal(SIGABRT),
              "^Fatal error: Call start before using Kite: file Kite, line 41\n$");
}

TEST_F(FatalErrorDeathTests, namesTheInnermostOperationOnALineOfItsOwn) {
  const CurrentOperation outer("outer");
  {
    const CurrentOperation inner("inner");
    EXPECT_EXIT(fatalError("wrong", {"File", "", 4}), ::testing::KilledBySignal(SIGABRT),
                "^Fatal error: wrong: file File, line 4\nin inner\n$");
  }
  EXPECT_EXIT(fatalError("wrong", {"File", "", 5}), ::testing::KilledBySignal(SIGABRT),
              "^Fatal error: wrong: file File, line 5\nin outer\n$");
}

TEST_F(FatalErrorDeathTests, stopsTheProcessEvenWhenTheHandlerReturns) {
  EXPECT_EXIT(
      {
        exchangeFatalErrorHandler(ignore);
        fatalError("ignored", {"File", "", 1});
      },
      ::testing::KilledBySignal(SIGABRT), "^$");
}

TEST_F(FatalErrorDeathTests, printsAgainAfterTheDefaultHandlerIsPutBack) {
  EXPECT_EXIT(
      {
        const auto original = exchangeFatalErrorHandler(ignore);
        exchangeFatalErrorHandler(original);
        fatalError("back", {"File", "", 2});
      },
      ::testing::KilledBySignal(SIGABRT), "^Fatal error: back: file File, line 2\n$");
}

TEST_F(FatalErrorDeathTests, takesNoHandlerForTheDefaultOne) {
  EXPECT_EXIT(
      {
        exchangeFatalErrorHandler(nullptr);
        fatalError("none", {"File", "", 3});
      },
      ::testing::KilledBySignal(SIGABRT), "^Fatal error: none: file File, line 3\n$");
}

TEST(FatalError, givesTheHandlerMessageAndPlace) {
  const auto raised = fatalErrorOf([] { fatalError("wrong", {"File", "function", 12}); });
  ASSERT_TRUE(raised);
  EXPECT_EQ(raised->message, "wrong");
  EXPECT_STREQ(raised->where.file, "File");
  EXPECT_STREQ(raised->where.function, "function");
  EXPECT_EQ(raised->where.line, 12U);
}

TEST(FatalError, namesTheCallersPlaceByDefault) {
  const std::uint64_t line = __LINE__ + 1;
  const auto raised = fatalErrorOf([] { fatalError("here"); });
  ASSERT_TRUE(raised);
  EXPECT_EQ(raised->where.line, line);
  EXPECT_TRUE(std::string_view(raised->where.file).ends_with("FatalErrorTests.cpp"));
}

TEST(FatalError, isCaughtByTheInnermostTrapAndLaterByTheOuterOne) {
  const CatchFatalErrors outer;
  EXPECT_FATAL(fatalError("inner"), "inner");
  EXPECT_THROW(fatalError("outer"), FatalErrorRaised);
}

TEST(FatalError, isAbsentFromABodyThatReturns) {
  EXPECT_FALSE(fatalErrorOf([] {}));
}

}  // namespace
}  // namespace kite::test
