#include "Demo/Comparison.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kite::tool {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

Event action(std::string id, JSONValue::Object info) {
  return {.id = std::move(id),
          .type = "UserAction",
          .data = JSONValue::Object{{"action_info", std::move(info)}}};
}

Event sessionStart(std::string id) {
  return {.id = std::move(id),
          .type = "Session",
          .data = JSONValue::Object{{"subtype", "session_start"}}};
}

TEST(Comparison, agreesWhenEverythingArrivedOnce) {
  Ledger ledger;
  const auto info = ledger.track("UserAction", {{"a", 1.0}});
  ledger.expect("Session", "start");
  const auto comparison = compare(ledger, {sessionStart("S"), action("A", info)});
  EXPECT_THAT(comparison.problems, IsEmpty());
  EXPECT_EQ(comparison.total().tracked, 2U);
  EXPECT_EQ(comparison.total().delivered, 2U);
  EXPECT_EQ(comparison.byType.at("Session").tracked, 1U);
}

TEST(Comparison, findsAnEventThatIsMissing) {
  Ledger ledger;
  ledger.track("UserAction", {});
  EXPECT_THAT(compare(ledger, {}).problems, ElementsAre("UserAction 1 is missing"));
}

TEST(Comparison, findsAnEventThatChangedItsKindOfNumber) {
  Ledger ledger;
  auto info = ledger.track("UserAction", {{"a", 1.0}});
  info["a"] = JSONValue(std::int64_t{1});
  EXPECT_THAT(compare(ledger, {action("A", info)}).problems,
              ElementsAre("UserAction 1 arrived changed"));
}

TEST(Comparison, findsAnEventThatChangedItsType) {
  Ledger ledger;
  auto event = action("A", ledger.track("UserAction", {}));
  event.type = "DebugEvent";
  event.data = JSONValue::Object{{"info", JSONValue::Object{{sequenceKey, 1}}}};
  EXPECT_THAT(compare(ledger, {event}).problems, ElementsAre("DebugEvent 1 arrived changed"));
}

TEST(Comparison, findsAnEventUnderTwoIds) {
  Ledger ledger;
  const auto info = ledger.track("UserAction", {});
  EXPECT_THAT(compare(ledger, {action("A", info), action("B", info)}).problems,
              ElementsAre("UserAction 1 arrived under two ids"));
}

TEST(Comparison, findsAnEventThatShouldHaveBeenRefused) {
  Ledger ledger;
  const auto info = ledger.trackInVain({});
  EXPECT_THAT(compare(ledger, {action("A", info)}).problems,
              ElementsAre("UserAction 1 was refused but arrived"));
}

TEST(Comparison, countsTheLibrarysOwnEvents) {
  Ledger ledger;
  ledger.expect("Session", "start");
  ledger.expect("Install", "first");
  EXPECT_THAT(compare(ledger, {sessionStart("A"), sessionStart("B")}).problems,
              ElementsAre("Install first: 0 arrived, 1 should have",
                          "Session start: 2 arrived, 1 should have"));
}

TEST(Comparison, findsAKindThatNobodyExpected) {
  EXPECT_THAT(compare({}, {sessionStart("A")}).problems,
              ElementsAre("Session start: 1 arrived, 0 should have"));
}

TEST(Comparison, countsDuplicatesWithoutMindingThem) {
  Ledger ledger;
  auto event = action("A", ledger.track("UserAction", {}));
  event.duplicates = 2;
  const auto comparison = compare(ledger, {event});
  EXPECT_THAT(comparison.problems, IsEmpty());
  EXPECT_EQ(comparison.total().duplicates, 2U);
  EXPECT_EQ(comparison.total().delivered, 1U);
}

TEST(Event, findsItsNumberWhereItsKindKeepsIt) {
  const JSONValue marked(JSONValue::Object{{sequenceKey, 7}});
  const auto sequence = [](const char* type, JSONValue data) {
    return Event{.id = "", .type = type, .data = std::move(data)}.sequence();
  };
  EXPECT_EQ(sequence("Orders", marked), 7);
  EXPECT_EQ(sequence("UserAction", JSONValue::Object{{"action_info", marked}}), 7);
  EXPECT_EQ(sequence("DebugEvent", JSONValue::Object{{"info", marked}}), 7);
  EXPECT_EQ(sequence("Orders", JSONValue::Object{}), std::nullopt);
}

TEST(Event, tellsSessionAndInstallEventsApart) {
  const auto detail = [](const char* type, JSONValue::Object data) {
    return Event{.id = "", .type = type, .data = std::move(data)}.detail();
  };
  EXPECT_EQ(detail("Session", {{"subtype", "session_start"}}), "start");
  EXPECT_EQ(detail("Session", {{"subtype", "session_end"}, {"crashed", false}}), "end");
  EXPECT_EQ(detail("Session", {{"subtype", "session_end"}, {"crashed", true}}),
            "end after a crash");
  EXPECT_EQ(detail("Install", {}), "first");
  EXPECT_EQ(detail("Install", {{"old_app_version", "1.0"}}), "update");
}

}  // namespace
}  // namespace kite::tool
