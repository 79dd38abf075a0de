#include "Collector/Checks/Batch.h"

#include "CollectorRequests.h"

#include <gmock/gmock.h>

namespace kite::test {
namespace {

using ::testing::TestWithParam;
using ::testing::ValuesIn;
using tool::readBatch;
using tool::Refusal;

/// What is said against the only event of a body, without its name; empty when it is accepted.
std::string violationOf(const std::string& event) {
  const auto batch = readBatch(aBody({event}), "trail-maps");
  if (batch) return "";
  EXPECT_EQ(batch.error().status, 422);
  EXPECT_EQ(batch.error().code, 101);
  const auto name = "event " + std::string(anID) + ": ";
  EXPECT_EQ(batch.error().message.substr(0, name.size()), name);
  return batch.error().message.substr(name.size());
}

std::string eventRefusal(const std::string& event) {
  const auto batch = readBatch(aBody({event}), "trail-maps");
  return batch ? "" : batch.error().message;
}

const std::string anInstall =
    R"({"installed_before_kite":false,"keychain_id_status":"just_generated",)"
    R"("userdefault_id_status":"read_from_file","new_app_version":"2.0",)"
    R"("document_directory_creation_timestamp":1.5})";
const std::string aSessionStart = R"({"subtype":"session_start"})";
const std::string aSessionEnd =
    R"({"subtype":"session_end","session_start_id":"E2A59A80-94EC-4328-A974-2E6D85EC51AE",)"
    R"("crashed":true,"duration":-1.0})";
const std::string aUserInfoUpdate =
    R"({"old_user_info":{"a":1},"new_user_info":{},"updated_keys":[],"lost_keys":["a"]})";
const std::string aUserAction =
    R"({"action_kind":"buy","action_info":{"price":9.5},"seconds_from_session_start":1.5,)"
    R"("session_id":"000000C3-C2FF-414F-A90C-453A5C31AD4D",)"
    R"("process_id":"5097E637-6BE5-4D57-AFFB-1EF3DE0D42ED",)"
    R"("last_foreground_session_id":"E2A59A80-94EC-4328-A974-2E6D85EC51AE",)"
    R"("is_background_event":false})";
const std::string aDebugEvent =
    R"({"severity":"Warning","message":"m","category":"c","domain":"d","code":"42","type":"t",)"
    R"("description":"e","info":{},"file":"f.cpp","function":"main","line":42})";
const std::string aStorefront = R"({"storefront_id":"143441","storefront_country_code":"US",)";

struct Accepted {
  const char* type;
  std::string data;

  friend void PrintTo(const Accepted& each, std::ostream* out) { *out << each.type; }
};

class CollectorAcceptedPayloads : public TestWithParam<Accepted> {};

TEST_P(CollectorAcceptedPayloads, haveNothingAgainstThem) {
  EXPECT_EQ(violationOf(anEvent(GetParam().type, GetParam().data)), "");
}

const std::vector<Accepted> acceptedPayloads{
    {"Install", anInstall},
    {"Install", replaced(anInstall, "just_generated", "not_applicable")},
    {"Install", replaced(anInstall, "1.5", "null")},
    {"Install", replaced(anInstall, "1.5", "1")},
    {"Install", replaced(anInstall, "{", R"({"old_bundle_version":"1","old_app_version":"1.0",)")},
    {"Install", replaced(anInstall, "{", R"({"old_app_version":"1.0",)")},
    {"Install", replaced(anInstall, "{", aStorefront)},
    {"Session", aSessionStart},
    {"Session", replaced(aSessionStart, "{", aStorefront)},
    {"Session", aSessionEnd},
    {"Session", replaced(aSessionEnd, "{", aStorefront)},
    {"Session", replaced(aSessionEnd, "{", R"({"level":{"deep":[1]},"storefront_id":7,)")},
    {"UserInfoUpdated", aUserInfoUpdate},
    {"UserAction", aUserAction},
    {"UserAction", replaced(aUserAction, "1.5", "null")},
    {"UserAction", replaced(aUserAction, R"("000000C3-C2FF-414F-A90C-453A5C31AD4D")", "null")},
    {"UserAction", replaced(aUserAction, R"("E2A59A80-94EC-4328-A974-2E6D85EC51AE")", "null")},
    {"DebugEvent", aDebugEvent},
    {"DebugEvent", replaced(aDebugEvent, "Warning", "Debug")},
    {"DebugEvent", replaced(aDebugEvent, "Warning", "Notice")},
    {"DebugEvent", replaced(aDebugEvent, "Warning", "Error")},
    {"DebugEvent", replaced(aDebugEvent, "Warning", "Critical")},
    {"DebugEvent", replaced(aDebugEvent, R"("d")", "null")},
    {"DebugEvent", replaced(aDebugEvent, R"("42")", "null")},
    {"DebugEvent", replaced(aDebugEvent, R"("t")", "null")},
    {"DebugEvent", replaced(aDebugEvent, R"("e")", "null")},
    {"DebugEvent", replaced(aDebugEvent, ":42}", ":0}")},
    {"DebugEvent", replaced(aDebugEvent, ":42}", ":9223372036854775807}")},
    {"ExperimentSegmentReceived", "{}"},
    {"Purchase", "{}"},
    {"session", R"({"subtype":5,"anything":[null,true,{"x":1.5e3}]})"},
};
INSTANTIATE_TEST_SUITE_P(All, CollectorAcceptedPayloads, ValuesIn(acceptedPayloads));

/// One change to a good payload and what it is refused for.
struct Refused {
  const char* type;
  const std::string& data;
  std::string from;
  std::string to;
  std::string violation;

  friend void PrintTo(const Refused& each, std::ostream* out) {
    *out << each.type << " " << each.violation;
  }
};

class CollectorRefusedPayloads : public TestWithParam<Refused> {};

TEST_P(CollectorRefusedPayloads, areRefusedByTheNameOfTheMember) {
  const auto& [type, data, from, to, violation] = GetParam();
  EXPECT_EQ(violationOf(anEvent(type, replaced(data, from, to))), violation);
}

const std::string knownStatuses = "not_applicable, just_generated or read_from_file";
const std::string severities = "Debug, Notice, Warning, Error or Critical";
const std::string subtypes = "session_start or session_end";

const std::vector<Refused> refusedPayloads{
    {"Install", anInstall, R"("installed_before_kite")", R"("x")",
     "data.installed_before_kite is missing"},
    {"Install", anInstall, "false", "0", "data.installed_before_kite must be a boolean"},
    {"Install", anInstall, R"("keychain_id_status")", R"("x")",
     "data.keychain_id_status is missing"},
    {"Install", anInstall, "just_generated", "x",
     "data.keychain_id_status must be " + knownStatuses},
    {"Install", anInstall, R"("userdefault_id_status")", R"("x")",
     "data.userdefault_id_status is missing"},
    {"Install", anInstall, R"("read_from_file")", "null",
     "data.userdefault_id_status must be " + knownStatuses},
    {"Install", anInstall, R"("new_app_version")", R"("x")", "data.new_app_version is missing"},
    {"Install", anInstall, R"("2.0")", "null", "data.new_app_version must be a string"},
    {"Install", anInstall, R"("document_directory_creation_timestamp")", R"("x")",
     "data.document_directory_creation_timestamp is missing"},
    {"Install", anInstall, "1.5", R"("1.5")",
     "data.document_directory_creation_timestamp must be a number or null"},
    {"Install", anInstall, "{", R"({"old_bundle_version":null,)",
     "data.old_bundle_version must be a string"},
    {"Install", anInstall, "{", R"({"old_app_version":null,)",
     "data.old_app_version must be a string"},
    {"Install", anInstall, "{", R"({"storefront_id":"1",)",
     "data.storefront_country_code is missing"},
    {"Install", anInstall, "{", R"({"storefront_country_code":"US",)",
     "data.storefront_id is missing"},
    {"Install", anInstall, "{", R"({"storefront_id":1,"storefront_country_code":"US",)",
     "data.storefront_id must be a string"},
    {"Install", anInstall, "{", R"({"storefront_id":"1","storefront_country_code":null,)",
     "data.storefront_country_code must be a string"},
    {"Install", anInstall, "{", R"({"extra":1,)", "data.extra is unknown"},

    {"Session", aSessionStart, R"("subtype")", R"("x")", "data.subtype is missing"},
    {"Session", aSessionStart, "session_start", "start", "data.subtype must be " + subtypes},
    {"Session", aSessionStart, "{", R"({"duration":1,)", "data.duration is unknown"},
    {"Session", aSessionStart, "{", R"({"storefront_id":"1",)",
     "data.storefront_country_code is missing"},
    {"Session", aSessionEnd, R"("session_start_id")", R"("x")", "data.session_start_id is missing"},
    {"Session", aSessionEnd, "E2A59A80", "e2a59a80",
     "data.session_start_id must be an upper-case UUID"},
    {"Session", aSessionEnd, R"("crashed")", R"("x")", "data.crashed is missing"},
    {"Session", aSessionEnd, "true", "null", "data.crashed must be a boolean"},
    {"Session", aSessionEnd, R"("duration")", R"("x")", "data.duration is missing"},
    {"Session", aSessionEnd, "-1.0", "null", "data.duration must be a number"},

    {"UserInfoUpdated", aUserInfoUpdate, R"("old_user_info")", R"("x")",
     "data.old_user_info is missing"},
    {"UserInfoUpdated", aUserInfoUpdate, R"({"a":1})", "[]",
     "data.old_user_info must be an object"},
    {"UserInfoUpdated", aUserInfoUpdate, R"("new_user_info")", R"("x")",
     "data.new_user_info is missing"},
    {"UserInfoUpdated", aUserInfoUpdate, "{}", "null", "data.new_user_info must be an object"},
    {"UserInfoUpdated", aUserInfoUpdate, R"("updated_keys")", R"("x")",
     "data.updated_keys is missing"},
    {"UserInfoUpdated", aUserInfoUpdate, "[]", "{}",
     "data.updated_keys must be an array of strings"},
    {"UserInfoUpdated", aUserInfoUpdate, R"("lost_keys")", R"("x")", "data.lost_keys is missing"},
    {"UserInfoUpdated", aUserInfoUpdate, R"(["a"])", R"(["a",1])",
     "data.lost_keys must be an array of strings"},
    {"UserInfoUpdated", aUserInfoUpdate, "{", R"({"extra":1,)", "data.extra is unknown"},

    {"UserAction", aUserAction, R"("action_kind")", R"("x")", "data.action_kind is missing"},
    {"UserAction", aUserAction, R"("buy")", "null", "data.action_kind must be a string"},
    {"UserAction", aUserAction, R"("action_info")", R"("x")", "data.action_info is missing"},
    {"UserAction", aUserAction, R"({"price":9.5})", "null", "data.action_info must be an object"},
    {"UserAction", aUserAction, R"("seconds_from_session_start")", R"("x")",
     "data.seconds_from_session_start is missing"},
    {"UserAction", aUserAction, "1.5", R"("1.5")",
     "data.seconds_from_session_start must be a number or null"},
    {"UserAction", aUserAction, R"("session_id")", R"("x")", "data.session_id is missing"},
    {"UserAction", aUserAction, "000000C3-", "",
     "data.session_id must be an upper-case UUID or null"},
    {"UserAction", aUserAction, R"("process_id")", R"("x")", "data.process_id is missing"},
    {"UserAction", aUserAction, R"("5097E637-6BE5-4D57-AFFB-1EF3DE0D42ED")", "null",
     "data.process_id must be an upper-case UUID"},
    {"UserAction", aUserAction, R"("last_foreground_session_id")", R"("x")",
     "data.last_foreground_session_id is missing"},
    {"UserAction", aUserAction, "E2A59A80", "e2a59a80",
     "data.last_foreground_session_id must be an upper-case UUID or null"},
    {"UserAction", aUserAction, R"("is_background_event")", R"("x")",
     "data.is_background_event is missing"},
    {"UserAction", aUserAction, "false", "0.0", "data.is_background_event must be a boolean"},
    {"UserAction", aUserAction, "{", R"({"extra":1,)", "data.extra is unknown"},

    {"DebugEvent", aDebugEvent, R"("severity")", R"("x")", "data.severity is missing"},
    {"DebugEvent", aDebugEvent, "Warning", "warning", "data.severity must be " + severities},
    {"DebugEvent", aDebugEvent, R"("Warning")", "2", "data.severity must be " + severities},
    {"DebugEvent", aDebugEvent, R"("message")", R"("x")", "data.message is missing"},
    {"DebugEvent", aDebugEvent, R"("m")", "null", "data.message must be a string"},
    {"DebugEvent", aDebugEvent, R"("category")", R"("x")", "data.category is missing"},
    {"DebugEvent", aDebugEvent, R"("c")", "null", "data.category must be a string"},
    {"DebugEvent", aDebugEvent, R"("domain")", R"("x")", "data.domain is missing"},
    {"DebugEvent", aDebugEvent, R"("d")", "1", "data.domain must be a string or null"},
    {"DebugEvent", aDebugEvent, R"("code")", R"("x")", "data.code is missing"},
    {"DebugEvent", aDebugEvent, R"("42")", "42", "data.code must be a string or null"},
    {"DebugEvent", aDebugEvent, R"("type")", R"("x")", "data.type is missing"},
    {"DebugEvent", aDebugEvent, R"("t")", "1", "data.type must be a string or null"},
    {"DebugEvent", aDebugEvent, R"("description")", R"("x")", "data.description is missing"},
    {"DebugEvent", aDebugEvent, R"("e")", "1", "data.description must be a string or null"},
    {"DebugEvent", aDebugEvent, R"("info")", R"("x")", "data.info is missing"},
    {"DebugEvent", aDebugEvent, "{}", "null", "data.info must be an object"},
    {"DebugEvent", aDebugEvent, R"("file")", R"("x")", "data.file is missing"},
    {"DebugEvent", aDebugEvent, R"("f.cpp")", "null", "data.file must be a string"},
    {"DebugEvent", aDebugEvent, R"("function")", R"("x")", "data.function is missing"},
    {"DebugEvent", aDebugEvent, R"("main")", "null", "data.function must be a string"},
    {"DebugEvent", aDebugEvent, R"("line")", R"("x")", "data.line is missing"},
    {"DebugEvent", aDebugEvent, ":42}", ":42.0}", "data.line must be an integer, zero or more"},
    {"DebugEvent", aDebugEvent, ":42}", ":-1}", "data.line must be an integer, zero or more"},
    {"DebugEvent", aDebugEvent, ":42}", ":9223372036854775808}",
     "data.line must be an integer, zero or more"},
    {"DebugEvent", aDebugEvent, "{", R"({"extra":1,)", "data.extra is unknown"},
};
INSTANTIATE_TEST_SUITE_P(All, CollectorRefusedPayloads, ValuesIn(refusedPayloads));

TEST(CollectorEventRules, wantAnEmptyPayloadOfExperimentSegments) {
  EXPECT_EQ(violationOf(anEvent("ExperimentSegmentReceived", R"({"a":1})")), "data.a is unknown");
}

/// One change to a good event and what it is refused for.
struct RefusedEvent {
  std::string from;
  std::string to;
  std::string violation;

  friend void PrintTo(const RefusedEvent& each, std::ostream* out) { *out << each.violation; }
};

class CollectorRefusedEvents : public TestWithParam<RefusedEvent> {};

TEST_P(CollectorRefusedEvents, areRefusedByTheNameOfTheMember) {
  const auto& [from, to, violation] = GetParam();
  EXPECT_EQ(violationOf(replaced(aCustomEvent(), from, to)), violation);
}

const std::vector<RefusedEvent> refusedEvents{
    {R"("type")", R"("x")", "type is missing"},
    {R"("Purchase")", "1", "type must be a non-empty string"},
    {"Purchase", "", "type must be a non-empty string"},
    {R"("timestamp")", R"("x")", "timestamp is missing"},
    {"1765432100.5", R"("1765432100.5")", "timestamp must be a number"},
    {R"("request_timestamp")", R"("x")", "request_timestamp is missing"},
    {"1765432200.0", "null", "request_timestamp must be a number"},
    {R"("app")", R"("x")", "app is missing"},
    {R"("trail-maps")", "null", "app must be a string"},
    {"trail-maps", "other", "app must be the Lumo-Id"},
    {R"("user")", R"("x")", "user is missing"},
    {R"({"info":{"country":"NZ"},"ids":{"user_id":"u1"}})", "[]", "user must be an object"},
    {R"("info")", R"("x")", "user.info is missing"},
    {R"({"country":"NZ"})", "null", "user.info must be an object"},
    {R"("ids")", R"("x")", "user.ids is missing"},
    {R"({"user_id":"u1"})", "[]", "user.ids must be an object of strings"},
    {R"("u1")", "null", "user.ids must be an object of strings"},
    {R"("info":)", R"("extra":1,"info":)", "user.extra is unknown"},
    {R"("data")", R"("x")", "data is missing"},
    {R"({"price":9.5})", "[]", "data must be an object"},
    {"{", R"({"extra":1,)", "extra is unknown"},
};
INSTANTIATE_TEST_SUITE_P(All, CollectorRefusedEvents, ValuesIn(refusedEvents));

TEST(CollectorEventRules, acceptAnEmptyUser) {
  auto event = replaced(aCustomEvent(), R"({"country":"NZ"})", "{}");
  event = replaced(event, R"({"user_id":"u1"})", "{}");
  EXPECT_EQ(violationOf(event), "");
}

TEST(CollectorEventRules, acceptMembersInAnyOrderAndWholeNumbers) {
  const std::string event =
      R"({"data":{},"user":{"ids":{},"info":{}},"app":"trail-maps","request_timestamp":2,)"
      R"("timestamp":1,"id":"79690975-FBDE-45B0-A2A3-7357AE2CC59B","type":"Purchase"})";
  EXPECT_EQ(violationOf(event), "");
}

TEST(CollectorEventRules, nameAnEventWithoutAnIDByItsPosition) {
  const std::string rule = ": id must be an upper-case UUID";
  EXPECT_EQ(eventRefusal(aCustomEvent("79690975-fbde-45b0-a2a3-7357ae2cc59b")),
            "event at position 0" + rule);
  EXPECT_EQ(eventRefusal(aCustomEvent("")), "event at position 0" + rule);
  EXPECT_EQ(eventRefusal(replaced(aCustomEvent(), R"("id")", R"("x")")),
            "event at position 0: id is missing");
}

TEST(CollectorEventRules, wantEventsToBeObjects) {
  EXPECT_EQ(eventRefusal("null"), "event at position 0: must be an object");
  EXPECT_EQ(eventRefusal(aCustomEvent() + ",[]"), "event at position 1: must be an object");
}

}  // namespace
}  // namespace kite::test
