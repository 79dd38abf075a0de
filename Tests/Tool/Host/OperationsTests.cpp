#include "Host/Operations.h"

#include "Common/ParseJSON.h"
#include "Common/WriteJSON.h"
#include "Host/Reads.h"
#include "Tool/Host/MockKiteManager.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

namespace kite::tool {
namespace {

using testing::_;
using testing::AllOf;
using testing::ElementsAre;
using testing::Field;
using testing::Optional;
using testing::Pair;
using testing::Return;
using testing::StrEq;

MATCHER_P(isData, json, "") { return toJSON(toJSONObject(arg)) == json; }
MATCHER_P(isValue, json, "") { return toJSON(arg.toJSONValue()) == json; }

/// The facade is a mock that a test puts its expectations on first.
class OperationsTests : public testing::Test {
 protected:
  /// Carries the line out; gives the complaint, or nothing.
  std::string run(std::string_view line) {
    const auto members = *parseJSON(line)->object();
    const auto name = *members.at("op")->string();
    const auto found = std::find_if(operations().begin(), operations().end(),
                                    [&](const auto& operation) { return operation.name == name; });
    EXPECT_NE(found, operations().end()) << name;
    try {
      found->run(kite, Arguments(members, found->members, {"a script", 12}));
      return "";
    } catch (const BadLine& bad) {
      return bad.what();
    }
  }
  JSONValue read(std::string_view name) {
    const auto found = std::find_if(reads().begin(), reads().end(),
                                    [&](const auto& entry) { return entry.name == name; });
    EXPECT_NE(found, reads().end()) << name;
    return found->run(kite);
  }

  testing::StrictMock<test::MockKiteManager> kite;
};

TEST_F(OperationsTests, addsSessionData) {
  EXPECT_CALL(kite, addSessionData(StrEq("level"), isValue("[1,2.0]")));
  EXPECT_EQ(run(R"({"op":"addSessionData","key":"level","value":[1,2.0]})"), "");
}

TEST_F(OperationsTests, updatesSessionData) {
  EXPECT_CALL(kite, updateSessionData(isData(R"({"a":1})")));
  EXPECT_EQ(run(R"({"op":"updateSessionData","with":{"a":1}})"), "");
}

TEST_F(OperationsTests, addsUserInfo) {
  EXPECT_CALL(kite, addUserInfo(StrEq("nick"), isValue("null")));
  EXPECT_EQ(run(R"({"op":"addUserInfo","key":"nick","value":null})"), "");
}

TEST_F(OperationsTests, updatesUserInfo) {
  EXPECT_CALL(kite, updateUserInfo(isData(R"({"a":{"b":[]}})")));
  EXPECT_EQ(run(R"({"op":"updateUserInfo","with":{"a":{"b":[]}}})"), "");
}

TEST_F(OperationsTests, tracksAUserAction) {
  EXPECT_CALL(kite, trackUserAction(StrEq("buy"), isData(R"({"count":2,"price":9.0})")));
  EXPECT_EQ(run(R"({"op":"trackUserAction","name":"buy","data":{"price":9.0,"count":2}})"), "");
}

TEST_F(OperationsTests, tracksACustomEvent) {
  EXPECT_CALL(kite, trackCustomEvent(StrEq("Orders"), isData("{}")));
  EXPECT_EQ(run(R"({"op":"trackCustomEvent","in":"Orders","data":{}})"), "");
}

TEST_F(OperationsTests, tracksALog) {
  EXPECT_CALL(kite, trackLog(StrEq("n"), Severity::critical, isData(R"({"a":true})")));
  EXPECT_EQ(run(R"({"op":"trackLog","name":"n","severity":"Critical","data":{"a":true}})"), "");
}

TEST_F(OperationsTests, tracksADebugEventWithAllItsMembers) {
  constexpr std::uint64_t largest = std::numeric_limits<std::int64_t>::max();
  EXPECT_CALL(
      kite,
      trackDebugEvent(AllOf(
          Field(&DebugEventArguments::severity, Severity::warning),
          Field(&DebugEventArguments::message, "m"), Field(&DebugEventArguments::category, "c"),
          Field(&DebugEventArguments::domain, Optional(StrEq("d"))),
          Field(&DebugEventArguments::code, Optional(StrEq("e"))),
          Field(&DebugEventArguments::type, Optional(StrEq("t"))),
          Field(&DebugEventArguments::description, Optional(StrEq("s"))),
          Field(&DebugEventArguments::info, isData(R"({"i":1})")),
          Field(&DebugEventArguments::where, AllOf(Field(&SourceLocation::file, StrEq("f.cpp")),
                                                   Field(&SourceLocation::function, StrEq("g")),
                                                   Field(&SourceLocation::line, largest))))));
  EXPECT_EQ(run(R"({"op":"trackDebugEvent","severity":"Warning","message":"m","category":"c",
                    "domain":"d","code":"e","type":"t","description":"s","info":{"i":1},
                    "file":"f.cpp","function":"g","line":9223372036854775807})"),
            "");
}

TEST_F(OperationsTests, namesTheLineOfTheScriptInADebugEventWithoutPlace) {
  EXPECT_CALL(kite, trackDebugEvent(AllOf(
                        Field(&DebugEventArguments::domain, std::nullopt),
                        Field(&DebugEventArguments::code, std::nullopt),
                        Field(&DebugEventArguments::type, std::nullopt),
                        Field(&DebugEventArguments::description, std::nullopt),
                        Field(&DebugEventArguments::info, isData("{}")),
                        Field(&DebugEventArguments::where,
                              AllOf(Field(&SourceLocation::file, StrEq("a script")),
                                    Field(&SourceLocation::function, StrEq("trackDebugEvent")),
                                    Field(&SourceLocation::line, 12U))))));
  EXPECT_EQ(run(R"({"op":"trackDebugEvent","severity":"Debug","message":"m","category":"c",
                    "domain":null})"),
            "");
}

TEST_F(OperationsTests, tracksExperimentSegments) {
  EXPECT_CALL(kite, trackExperimentSegmentsReceived(ElementsAre(Pair("a", 1), Pair("b", -2))));
  EXPECT_EQ(run(R"({"op":"trackExperimentSegmentsReceived","segments":{"b":-2,"a":1}})"), "");
}

TEST_F(OperationsTests, changesMonetizationFields) {
  EXPECT_CALL(kite, monetizationFieldsDidChange(isData(R"({"plan":"b"})")));
  EXPECT_EQ(run(R"({"op":"monetizationFieldsDidChange","newValue":{"plan":"b"}})"), "");
}

TEST_F(OperationsTests, changesTheUserFlags) {
  EXPECT_CALL(kite, isBaselineUserDidChange(true));
  EXPECT_CALL(kite, isFreeUserDidChange(false));
  EXPECT_EQ(run(R"({"op":"isBaselineUserDidChange","newValue":true})"), "");
  EXPECT_EQ(run(R"({"op":"isFreeUserDidChange","newValue":false})"), "");
}

TEST_F(OperationsTests, setsConsents) {
  EXPECT_CALL(kite, setAnalyticsTrackingConsent(false));
  EXPECT_CALL(kite, setProfilingTrackingConsent(true));
  EXPECT_EQ(run(R"({"op":"setAnalyticsTrackingConsent","value":false})"), "");
  EXPECT_EQ(run(R"({"op":"setProfilingTrackingConsent","value":true})"), "");
}

TEST_F(OperationsTests, addsEventNames) {
  EXPECT_CALL(kite, addTechnicalEvents(ElementsAre("a", "b")));
  EXPECT_CALL(kite, addProfilingOnlyEvents(ElementsAre("c")));
  EXPECT_EQ(run(R"({"op":"addTechnicalEvents","names":["b","a","b"]})"), "");
  EXPECT_EQ(run(R"({"op":"addProfilingOnlyEvents","names":["c"]})"), "");
}

TEST_F(OperationsTests, touchesNothingWhenAMemberIsMissing) {
  EXPECT_EQ(run(R"({"op":"trackUserAction","name":"buy"})"), "\"data\" is missing");
  EXPECT_EQ(run(R"({"op":"addUserInfo","key":"a"})"), "\"value\" is missing");
  EXPECT_EQ(run(R"({"op":"trackDebugEvent","severity":"Debug","message":"m"})"),
            "\"category\" is missing");
}

TEST_F(OperationsTests, touchesNothingWhenThereIsAnUnknownMember) {
  EXPECT_EQ(run(R"({"op":"updateUserInfo","with":{},"for":"me"})"), "unknown member \"for\"");
}

TEST_F(OperationsTests, touchesNothingWhenAMemberIsOfTheWrongKind) {
  EXPECT_EQ(run(R"({"op":"trackUserAction","name":7,"data":{}})"), "\"name\" must be a string");
  EXPECT_EQ(run(R"({"op":"trackUserAction","name":"n","data":[]})"), "\"data\" must be an object");
  EXPECT_EQ(run(R"({"op":"isFreeUserDidChange","newValue":1})"),
            "\"newValue\" must be true or false");
  EXPECT_EQ(run(R"({"op":"addTechnicalEvents","names":["a",1]})"),
            "\"names\" must be an array of strings");
  EXPECT_EQ(run(R"({"op":"trackExperimentSegmentsReceived","segments":{"a":1.0}})"),
            "\"segments\" must be an object of integers");
  EXPECT_EQ(run(R"({"op":"trackLog","name":"n","severity":"warning","data":{}})"),
            "\"severity\" must be Debug, Notice, Warning, Error or Critical");
  EXPECT_EQ(run(R"({"op":"trackDebugEvent","severity":"Debug","message":"m","category":"c",
                    "line":-1})"),
            "\"line\" must not be negative");
  EXPECT_EQ(run(R"({"op":"trackDebugEvent","severity":"Debug","message":"m","category":"c",
                    "line":42.0})"),
            "\"line\" must be an integer");
}

TEST_F(OperationsTests, readsTheFacadesProperties) {
  const auto session = *UUID::parse("00000000-0000-4000-8000-00000000000A");
  EXPECT_CALL(kite, sessionDataKiteValue()).WillOnce(Return(KiteData{{"a", 1}}));
  EXPECT_CALL(kite, userInfoKiteValue()).WillOnce(Return(KiteData{{"b", 2.0}}));
  EXPECT_CALL(kite, firstInstallTimestamp()).WillOnce(Return(1.5)).WillOnce(Return(std::nullopt));
  EXPECT_CALL(kite, keychainId()).WillOnce(Return("K"));
  EXPECT_CALL(kite, userDefaultsId()).WillOnce(Return("U"));
  EXPECT_CALL(kite, currentSessionId()).WillOnce(Return(session));
  EXPECT_CALL(kite, currentProcessId()).WillOnce(Return(UUID{}));
  EXPECT_CALL(kite, installedBeforeKite()).WillOnce(Return(true));
  EXPECT_EQ(toJSON(read("sessionData")), R"({"a":1})");
  EXPECT_EQ(toJSON(read("userInfo")), R"({"b":2.0})");
  EXPECT_EQ(toJSON(read("firstInstallTimestamp")), "1.5");
  EXPECT_EQ(toJSON(read("firstInstallTimestamp")), "null");
  EXPECT_EQ(toJSON(read("keychainId")), R"("K")");
  EXPECT_EQ(toJSON(read("userDefaultsId")), R"("U")");
  EXPECT_EQ(toJSON(read("currentSessionId")), R"("00000000-0000-4000-8000-00000000000A")");
  EXPECT_EQ(toJSON(read("currentProcessId")), R"("00000000-0000-0000-0000-000000000000")");
  EXPECT_EQ(toJSON(read("installedBeforeKite")), "true");
}

}  // namespace
}  // namespace kite::tool
