#include "Events/WhiskerEvents.h"

#include "Support/ParsedJSON.h"

#include <gmock/gmock.h>

namespace kite::test {
namespace {

using testing::ElementsAre;

StoredEvent withData(JSONValue::Object data) {
  return {.type = EventType::Case::userAction,
          .id = "id",
          .timestamp = 1,
          .requestTimestamp = std::nullopt,
          .app = "app",
          .user = User{},
          .data = std::move(data)};
}

const EncodingError anError{.codingPath = {"data", "action_info", "list", "3"},
                            .debugDescription = "not finite"};

Whisker::DebugEvent reportOf(JSONValue::Object data) {
  return WhiskerEvents::jsonEncodingError(withData(std::move(data)), anError);
}

TEST(WhiskerEventsTests, anEncodingErrorIsOfTheSecondSeverityInItsOwnCategory) {
  const auto report = reportOf({});
  EXPECT_EQ(static_cast<int>(report.severity), 1);
  EXPECT_THAT(report.categories, ElementsAre("json_encoding_error"));
  EXPECT_EQ(report.errorCode, std::nullopt);
}

TEST(WhiskerEventsTests, anEncodingErrorIsDescribedWithATypographicApostrophe) {
  EXPECT_EQ(reportOf({}).description,
            "Received an event with a value which isn\xE2\x80\x99t encodable as a JSON array or "
            "JSON object");
}

TEST(WhiskerEventsTests, theKeysOfTheActionInfoAreNamedAndItsValuesAreNot) {
  EXPECT_EQ(reportOf({{"action_info", JSONValue::Object{{"price", 9.5}, {"note", "secret"}}}}).info,
            parsedObject(R"({
              "event_info_keys": ["note", "price"],
              "debug_description": "not finite",
              "error_coding_path": ["data", "action_info", "list", "3"]
            })"));
}

TEST(WhiskerEventsTests, anEventWithoutActionInfoHasNoKeysToName) {
  EXPECT_EQ(*reportOf({{"subtype", "session_end"}}).info.at("event_info_keys"), parsed("[]"));
}

TEST(WhiskerEventsTests, anActionInfoThatIsNoObjectHasNoKeysToName) {
  EXPECT_EQ(*reportOf({{"action_info", "text"}}).info.at("event_info_keys"), parsed("[]"));
  EXPECT_EQ(*reportOf({{"action_info", nullptr}}).info.at("event_info_keys"), parsed("[]"));
  EXPECT_EQ(*reportOf({{"action_info", JSONValue::Array{1}}}).info.at("event_info_keys"),
            parsed("[]"));
}

TEST(WhiskerEventsTests, aKeyWithoutAValueIsNotNamed) {
  const auto report = reportOf({{"action_info", JSONValue::Object{{"a", nullptr}, {"b", 1}}}});
  EXPECT_EQ(*report.info.at("event_info_keys"), parsed(R"(["b"])"));
}

}  // namespace
}  // namespace kite::test
