#include "Support/FakeSystem.h"
#include "Support/ParsedJSON.h"
#include "Support/TrackedEvents.h"

#include <gmock/gmock.h>

namespace kite::test {
namespace {

const Storefront aStorefront{.identifier = "143450", .countryCode = "ITA"};

TrackedEvent started(std::optional<Storefront> storefront = {}) {
  const SessionStartPayload payload{.id = FakeSystem::uuid(1), .sessionStartDate = 100.5};
  return tracked(SessionEvent{payload, std::move(storefront)});
}

TrackedEvent ended(JSONValue::Object sessionData, std::optional<Storefront> storefront = {}) {
  const SessionEndPayload payload{.sessionStartId = FakeSystem::uuid(1),
                                  .crashed = true,
                                  .duration = 37.0,
                                  .sessionData = std::move(sessionData),
                                  .id = FakeSystem::uuid(2),
                                  .sessionEndTimestamp = 200.25};
  return tracked(SessionEvent{payload, std::move(storefront)});
}

TEST(SessionEventTests, aStartCarriesTheSessionsIdAndStartDate) {
  const auto event = started();
  EXPECT_EQ(event.type(), EventType(EventType::Case::session));
  EXPECT_EQ(event.id(), FakeSystem::uuid(1).text());
  EXPECT_EQ(event.timestamp(), 100.5);
  EXPECT_EQ(event.requestTimestamp(), std::nullopt);
}

TEST(SessionEventTests, aStartSaysNoMoreThanThatItIsOne) {
  EXPECT_EQ(started().data(), parsedObject(R"({"subtype": "session_start"})"));
}

TEST(SessionEventTests, anEndCarriesItsOwnIdAndTime) {
  const auto event = ended({});
  EXPECT_EQ(event.type(), EventType(EventType::Case::session));
  EXPECT_EQ(event.id(), FakeSystem::uuid(2).text());
  EXPECT_EQ(event.timestamp(), 200.25);
}

TEST(SessionEventTests, anEndCarriesItsFourEntriesAndTheSessionsData) {
  auto expected = parsedObject(R"({"subtype": "session_end", "crashed": true, "duration": 37.0,
                                   "level": 3})");
  expected.insertOrAssign("session_start_id", FakeSystem::uuid(1).text());
  EXPECT_EQ(ended({{"level", 3}}).data(), expected);
}

TEST(SessionEventTests, anEndSaysWhetherTheSessionCrashed) {
  for (const bool crashed : {true, false}) {
    const SessionEndPayload payload{.sessionStartId = FakeSystem::uuid(1),
                                    .crashed = crashed,
                                    .duration = 37.0,
                                    .sessionData = {},
                                    .id = FakeSystem::uuid(2),
                                    .sessionEndTimestamp = 200.25};
    EXPECT_EQ(*tracked(SessionEvent{payload, {}}).data().at("crashed"), JSONValue(crashed));
  }
}

TEST(SessionEventTests, aSessionsOwnDataCannotReplaceTheFixedEntries) {
  const auto data =
      ended({{"duration", 1.0}, {"subtype", "x"}, {"crashed", false}, {"session_start_id", "x"}})
          .data();
  EXPECT_EQ(*data.at("duration"), JSONValue(37.0));
  EXPECT_EQ(*data.at("subtype"), JSONValue("session_end"));
  EXPECT_EQ(*data.at("crashed"), JSONValue(true));
  EXPECT_EQ(*data.at("session_start_id"), JSONValue(FakeSystem::uuid(1).text()));
}

TEST(SessionEventTests, bothKindsCarryTheStorefront) {
  for (const auto& event : {started(aStorefront), ended({}, aStorefront)}) {
    EXPECT_EQ(*event.data().at("storefront_id"), JSONValue("143450"));
    EXPECT_EQ(*event.data().at("storefront_country_code"), JSONValue("ITA"));
  }
}

TEST(SessionEventTests, withoutAStorefrontThereAreNoEntriesForIt) {
  EXPECT_FALSE(ended({}).data().contains("storefront_id"));
  EXPECT_FALSE(ended({}).data().contains("storefront_country_code"));
}

TEST(SessionEventTests, anEventsOwnEntryWinsOverTheStorefronts) {
  const auto data = ended({{"storefront_id", "the session's"}}, aStorefront).data();
  EXPECT_EQ(*data.at("storefront_id"), JSONValue("the session's"));
}

}  // namespace
}  // namespace kite::test
