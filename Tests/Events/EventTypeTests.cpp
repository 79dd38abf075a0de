#include "Events/EventType.h"

#include "Support/CatchFatalErrors.h"

#include <gmock/gmock.h>

#include <array>
#include <utility>

namespace kite::test {
namespace {

using Case = EventType::Case;

constexpr std::array<std::pair<Case, const char*>, 6> fixedKinds{
    {{Case::session, "Session"},
     {Case::experimentSegmentsReceived, "ExperimentSegmentReceived"},
     {Case::install, "Install"},
     {Case::userAction, "UserAction"},
     {Case::userInfoUpdated, "UserInfoUpdated"},
     {Case::debugEvent, "DebugEvent"}}};

TEST(EventTypeTests, fixedKindsHaveTheirOwnTexts) {
  for (const auto& [kind, text] : fixedKinds) EXPECT_EQ(EventType(kind).rawValue(), text);
}

TEST(EventTypeTests, theTextsOfFixedKindsReadAsThese) {
  for (const auto& [kind, text] : fixedKinds)
    EXPECT_EQ(EventType::fromRawValue(text), std::optional(EventType(kind)));
}

TEST(EventTypeTests, aCustomKindIsWrittenAsItsName) {
  EXPECT_EQ(EventType::custom("Purchase").rawValue(), "Purchase");
}

TEST(EventTypeTests, anUnknownTextReadsAsACustomKindOfThatName) {
  EXPECT_EQ(EventType::fromRawValue("Purchase"), std::optional(EventType::custom("Purchase")));
}

TEST(EventTypeTests, textsAreMatchedWithRegardToCase) {
  EXPECT_EQ(EventType::fromRawValue("session"), std::optional(EventType::custom("session")));
  EXPECT_EQ(EventType::fromRawValue("INSTALL"), std::optional(EventType::custom("INSTALL")));
}

TEST(EventTypeTests, theEmptyTextIsNoKind) { EXPECT_EQ(EventType::fromRawValue(""), std::nullopt); }

TEST(EventTypeTests, threeNamesAreRefusedForCustomKinds) {
  EXPECT_FATAL(static_cast<void>(EventType::custom("Session").rawValue()),
               "You cannot use Session as a name for a custom event.");
  EXPECT_FATAL(static_cast<void>(EventType::custom("ExperimentSegmentReceived").rawValue()),
               "You cannot use ExperimentSegmentReceived as a name for a custom event.");
  EXPECT_FATAL(static_cast<void>(EventType::custom("Install").rawValue()),
               "You cannot use Install as a name for a custom event.");
}

TEST(EventTypeTests, aRefusedNameIsReportedFromItsFixedPlace) {
  const auto raised =
      fatalErrorOf([] { static_cast<void>(EventType::custom("Session").rawValue()); });
  ASSERT_TRUE(raised);
  EXPECT_STREQ(raised->where.file, "Event");
  EXPECT_EQ(raised->where.line, 99U);
}

TEST(EventTypeTests, theOtherThreeFixedNamesPassForCustomKinds) {
  EXPECT_EQ(EventType::custom("UserAction").rawValue(), "UserAction");
  EXPECT_EQ(EventType::custom("UserInfoUpdated").rawValue(), "UserInfoUpdated");
  EXPECT_EQ(EventType::custom("DebugEvent").rawValue(), "DebugEvent");
}

TEST(EventTypeTests, aReservedNameInLowerCaseIsAccepted) {
  EXPECT_EQ(EventType::custom("session").rawValue(), "session");
}

TEST(EventTypeTests, aReservedNameIsRefusedOnlyWhenItsTextIsTaken) {
  EXPECT_EQ(EventType::custom("Session").kind(), Case::custom);
}

TEST(EventTypeTests, aCustomKindIsNotEqualToTheFixedKindOfThatName) {
  EXPECT_NE(EventType::custom("UserAction"), EventType(Case::userAction));
  EXPECT_EQ(EventType::fromRawValue(EventType::custom("UserAction").rawValue()),
            std::optional(EventType(Case::userAction)));
}

TEST(EventTypeTests, customKindsAreEqualByName) {
  EXPECT_EQ(EventType::custom("a"), EventType::custom("a"));
  EXPECT_NE(EventType::custom("a"), EventType::custom("b"));
}

TEST(EventTypeTests, fixedKindsAreEqualByKind) {
  EXPECT_EQ(EventType(Case::install), EventType(Case::install));
  EXPECT_NE(EventType(Case::install), EventType(Case::session));
}

}  // namespace
}  // namespace kite::test
