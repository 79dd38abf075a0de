#include "Sessions/Session.h"

#include "JSON/JSONWriter.h"
#include "Support/ParsedJSON.h"

#include <gmock/gmock.h>

namespace kite::test {
namespace {

constexpr auto idText = "00000000-0000-4000-8000-000000000001";

Session aSession() {
  return {.id = *UUID::parse(idText),
          .startDate = Date::sinceReferenceDate(800'000'000.25),
          .sessionData = {{"level", 3}},
          .isCrashed = false,
          .endDate = std::nullopt,
          .duration = 0};
}

JSONValue stored() {
  return parsed(R"({"id": "00000000-0000-4000-8000-000000000001", "start_date": 800000000.25,
                    "session_data": {"level": 3}, "is_crashed": false, "duration": 0.0})");
}

std::string textOf(const Session& session) {
  std::string text;
  EXPECT_EQ(appendJSON(text, JSONCoding<Session>::encode(session)), std::nullopt);
  return text;
}

std::optional<Session> without(std::string_view key) {
  auto members = *stored().object();
  EXPECT_TRUE(members.erase(key));
  return JSONCoding<Session>::decode(members);
}

std::optional<Session> with(std::string key, JSONValue value) {
  auto members = *stored().object();
  members.insertOrAssign(std::move(key), std::move(value));
  return JSONCoding<Session>::decode(members);
}

TEST(SessionTests, isStoredUnderItsKeysWithDatesSince2001) {
  EXPECT_EQ(parsed(textOf(aSession())), stored());
}

TEST(SessionTests, leavesOutAnAbsentEndDate) {
  EXPECT_FALSE(parsed(textOf(aSession())).object()->contains("end_date"));
}

TEST(SessionTests, storesAnEndDateSince2001) {
  auto session = aSession();
  session.endDate = Date::sinceReferenceDate(800'000'010.5);
  EXPECT_EQ(*parsed(textOf(session)).object()->at("end_date"), JSONValue(800'000'010.5));
}

TEST(SessionTests, isReadBackAsItWas) {
  auto session = aSession();
  EXPECT_EQ(JSONCoding<Session>::decode(parsed(textOf(session))), std::optional(session));
  session.endDate = Date::sinceReferenceDate(800'000'010.5);
  session.isCrashed = true;
  session.duration = 10.25;
  EXPECT_EQ(JSONCoding<Session>::decode(parsed(textOf(session))), std::optional(session));
}

TEST(SessionTests, needsEveryKeyButTheEndDate) {
  EXPECT_EQ(JSONCoding<Session>::decode(stored()), std::optional(aSession()));
  EXPECT_EQ(without("id"), std::nullopt);
  EXPECT_EQ(without("start_date"), std::nullopt);
  EXPECT_EQ(without("session_data"), std::nullopt);
  EXPECT_EQ(without("is_crashed"), std::nullopt);
  EXPECT_EQ(without("duration"), std::nullopt);
}

TEST(SessionTests, aMemberOfTheWrongTypeVoidsTheRecord) {
  EXPECT_EQ(with("id", "no identifier"), std::nullopt);
  EXPECT_EQ(with("id", 1), std::nullopt);
  EXPECT_EQ(with("start_date", "yesterday"), std::nullopt);
  EXPECT_EQ(with("session_data", JSONValue::Array{}), std::nullopt);
  EXPECT_EQ(with("is_crashed", 1), std::nullopt);
  EXPECT_EQ(with("end_date", "tomorrow"), std::nullopt);
  EXPECT_EQ(with("duration", nullptr), std::nullopt);
}

TEST(SessionTests, aNullEndDateIsNone) {
  EXPECT_EQ(with("end_date", nullptr), std::optional(aSession()));
}

TEST(SessionTests, numbersWithoutAFractionAreReadToo) {
  const auto session = with("start_date", 800'000'000);
  ASSERT_TRUE(session);
  EXPECT_EQ(session->startDate, Date::sinceReferenceDate(800'000'000));
  EXPECT_EQ(with("duration", 0), std::optional(aSession()));
}

TEST(SessionTests, unknownMembersAreIgnored) {
  EXPECT_EQ(with("color", "red"), std::optional(aSession()));
}

TEST(SessionTests, whatIsNoObjectIsNoSession) {
  EXPECT_EQ(JSONCoding<Session>::decode(parsed("[]")), std::nullopt);
  EXPECT_EQ(JSONCoding<Session>::decode(JSONValue()), std::nullopt);
}

}  // namespace
}  // namespace kite::test
