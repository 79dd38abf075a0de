#include <Kite/Kite.h>

#include "Facade/KiteState.h"
#include "Profile/UserInfo.h"
#include "Support/CatchFatalErrors.h"
#include "Support/FakeEventManager.h"
#include "Support/TestWorld.h"

#include <gmock/gmock.h>

#include <limits>

namespace kite::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Object = JSONValue::Object;

/// The facade's user-info side, with the event manager replaced by a list of payloads.
class KiteUserInfoTests : public testing::Test {
 protected:
  TestWorld world;
  std::shared_ptr<KiteState> state = std::make_shared<KiteState>(world.system.system());
  std::shared_ptr<FakeEventManager> events = std::make_shared<FakeEventManager>();

  void SetUp() override {
    state->eventManager = events;
    state->dependencies.set(world.dependencies());
    state->enabled = true;
  }

  std::vector<UserInfoUpdated::Payload> updates() const {
    return events->all<UserInfoUpdated::Payload>();
  }
  std::vector<DebugEvent::Payload> debugEvents() const {
    return events->all<DebugEvent::Payload>();
  }
  Object stored() { return UserInfoStore::userInfo(*world.secrets)->data; }
  void store(Object info) { UserInfoStore::updateUserInfo(*world.secrets, info); }
};

TEST_F(KiteUserInfoTests, anUpdateStoresTheValuesAndReportsWhatChanged) {
  store({{"a", 1}, {"b", 1}});
  state->updateUserInfo({{"a", 2}, {"b", 1}});
  ASSERT_EQ(updates().size(), 1U);
  const auto payload = updates().front();
  EXPECT_EQ(payload.oldUserInfo, (Object{{"a", 1}, {"b", 1}}));
  EXPECT_EQ(payload.newUserInfo, (Object{{"a", 2}, {"b", 1}}));
  EXPECT_THAT(payload.updatedKeys, ElementsAre("a"));
  EXPECT_THAT(payload.lostKeys, IsEmpty());
  EXPECT_EQ(payload.timestamp, world.system.now().secondsSince1970);
  EXPECT_EQ(stored(), (Object{{"a", 2}, {"b", 1}}));
}

TEST_F(KiteUserInfoTests, anUpdateThatChangesNothingSendsNoEvent) {
  store({{"a", 1}});
  state->updateUserInfo({{"a", 1}});
  EXPECT_THAT(updates(), IsEmpty());
}

TEST_F(KiteUserInfoTests, settingIsFreeToTheStoredValueSendsNoEvent) {
  store({{"is_free", true}});
  const int writes = world.secrets->writes();
  state->boolUserInfoDidChange("is_free", true);
  EXPECT_EQ(world.secrets->writes(), writes);
  EXPECT_THAT(updates(), IsEmpty());
  state->boolUserInfoDidChange("is_free", false);
  EXPECT_EQ(updates().size(), 1U);
}

TEST_F(KiteUserInfoTests, aFlagStoredAsAnotherKindIsReplaced) {
  store({{"is_free", 1}});
  state->boolUserInfoDidChange("is_free", true);
  EXPECT_EQ(stored(), (Object{{"is_free", true}}));
}

TEST_F(KiteUserInfoTests, monetizationIsMergedAndTheChangeReadsAsADottedPath) {
  store({{"monetization", Object{{"plan", "b"}, {"x", 1}}}});
  state->monetizationFieldsDidChange({{"plan", "a"}});
  EXPECT_EQ(stored(), (Object{{"monetization", Object{{"plan", "a"}, {"x", 1}}}}));
  ASSERT_EQ(updates().size(), 1U);
  EXPECT_THAT(updates().front().updatedKeys, ElementsAre("monetization.plan"));
}

TEST_F(KiteUserInfoTests, monetizationThatIsNoObjectIsReplaced) {
  store({{"monetization", "text"}});
  state->monetizationFieldsDidChange({{"plan", "a"}});
  EXPECT_EQ(stored(), (Object{{"monetization", Object{{"plan", "a"}}}}));
}

TEST_F(KiteUserInfoTests, aKeyThatTheStoreDropsIsLostAndReported) {
  state->trackUserInfoUpdated({}, {}, {{"dropped", 1}});
  ASSERT_EQ(updates().size(), 1U);
  EXPECT_THAT(updates().front().lostKeys, ElementsAre("dropped"));
  ASSERT_EQ(debugEvents().size(), 1U);
  const auto report = debugEvents().front();
  EXPECT_EQ(report.severity, Severity::warning);
  EXPECT_EQ(report.message, "UserInfoUpdated_LostKeys");
  EXPECT_EQ(report.category, "kite_automatic");
  EXPECT_EQ(report.domain, std::nullopt);
  EXPECT_EQ(report.code, std::nullopt);
  EXPECT_EQ(report.type, std::nullopt);
  EXPECT_EQ(report.description, std::nullopt);
  EXPECT_EQ(report.info, (Object{{"lost_keys", JSONValue::Array{"dropped"}}}));
  EXPECT_EQ(report.file, "Sources/Core/Kite");
  EXPECT_EQ(report.function, "trackUserInfoUpdated(oldUserInfo:newUserInfo:newData:eventManager:)");
  EXPECT_EQ(report.line, 864U);
}

TEST_F(KiteUserInfoTests, anUpdateThatTheStoreCannotWriteIsLost) {
  store({{"kept", 1}});
  state->updateUserInfo({{"endless", std::numeric_limits<double>::infinity()}});
  EXPECT_EQ(stored(), (Object{{"kept", 1}}));
  ASSERT_EQ(updates().size(), 1U);
  EXPECT_THAT(updates().front().lostKeys, ElementsAre("endless"));
  ASSERT_EQ(debugEvents().size(), 1U);
  EXPECT_EQ(debugEvents().front().info, (Object{{"lost_keys", JSONValue::Array{"endless"}}}));
}

TEST_F(KiteUserInfoTests, theReportOfLostKeysFollowsTheUpdateWithAStampOfItsOwn) {
  state->system = world.tickingSystem();
  const double before = state->system.now().secondsSince1970;
  state->trackUserInfoUpdated({}, {}, {{"dropped", 1}});
  const auto tracked = events->tracked();
  ASSERT_EQ(tracked.size(), 2U);
  const auto* update = std::get_if<UserInfoUpdated::Payload>(&tracked[0]);
  const auto* report = std::get_if<DebugEvent::Payload>(&tracked[1]);
  ASSERT_TRUE(update && report);
  EXPECT_EQ(update->id, FakeSystem::uuid(1));
  EXPECT_EQ(update->timestamp, before + 1);
  EXPECT_EQ(report->id, FakeSystem::uuid(2));
  EXPECT_EQ(report->timestamp, before + 2);
}

TEST_F(KiteUserInfoTests, whileDisabledOnlyExperimentSegmentsPass) {
  state->enabled = false;
  state->updateUserInfo({});
  state->updateUserInfo({{"a", 1}});
  EXPECT_THAT(updates(), IsEmpty());
  state->updateUserInfo({{"experiment", Object{{"color", 1}}}});
  EXPECT_EQ(stored(), (Object{{"experiment", Object{{"color", 1}}}}));
  EXPECT_EQ(updates().size(), 1U);
}

TEST_F(KiteUserInfoTests, whileDisabledOnlyChangesOfExperimentSegmentsAreReported) {
  state->enabled = false;
  state->trackUserInfoUpdated({}, {{"a", 1}}, {{"a", 1}});
  EXPECT_THAT(updates(), IsEmpty());
  const Object segments{{"experiment", Object{{"color", 1}}}};
  state->trackUserInfoUpdated({}, segments, segments);
  EXPECT_EQ(updates().size(), 1U);
}

TEST_F(KiteUserInfoTests, aStoredCountryStaysWhenTheLocaleHasNoRegionAnyMore) {
  store({{"country", "NZ"}});
  world.locale.regionCode = std::nullopt;
  state->dependencies.set(world.dependencies());
  state->configureUserInfo();
  EXPECT_EQ(*stored().at("country"), JSONValue("NZ"));
  EXPECT_THAT(updates().front().updatedKeys, testing::Not(testing::Contains("country")));
}

TEST_F(KiteUserInfoTests, startUpRepairsTheStoredInfoAndKeepsTheHostsKeys) {
  store({{"device_name", "x"}, {"bundle_version", 12.0}, {"own", 1}});
  state->configureUserInfo();
  EXPECT_FALSE(stored().contains("device_name"));
  EXPECT_EQ(*stored().at("own"), JSONValue(1));
  EXPECT_EQ(*updates().front().oldUserInfo.at("bundle_version"), JSONValue("12.0"));
  EXPECT_EQ(*stored().at("bundle_version"), JSONValue("100"));
}

TEST_F(KiteUserInfoTests, aNullIsKeptAsNullAndNotLost) {
  state->configureUserInfo();
  EXPECT_EQ(*stored().at("is_frozen_app"), JSONValue(Null{}));
  EXPECT_THAT(updates().front().lostKeys, IsEmpty());
}

TEST_F(KiteUserInfoTests, attributionDetailsAreStoredWithTheirNesting) {
  world.attribution = {[](const AttributionClient::Callback& reply) {
    reply(AttributionClient::Details{{"campaign", DynamicValue::Dictionary{{"name", "trails"}}}},
          std::nullopt);
  }};
  state->dependencies.set(world.dependencies());
  state->configureUserInfo();
  EXPECT_EQ(*stored().at("search_ads"),
            JSONValue(Object{{"campaign", Object{{"name", "trails"}}}}));
  EXPECT_THAT(updates().back().updatedKeys, ElementsAre("search_ads"));
}

TEST_F(KiteUserInfoTests, attributionDetailsWithoutAJSONFormAreDropped) {
  world.attribution = {[](const AttributionClient::Callback& reply) {
    reply(AttributionClient::Details{{"null", DynamicValue::NullObject{}}, {"id", 3}}, "ignored");
  }};
  state->dependencies.set(world.dependencies());
  state->configureUserInfo();
  EXPECT_EQ(*stored().at("search_ads"), JSONValue(Object{{"id", 3}}));
}

TEST_F(KiteUserInfoTests, attributionDetailsOfWhichNothingIsLeftAreStoredAsAnEmptyObject) {
  for (const auto& details : {AttributionClient::Details{},
                              AttributionClient::Details{{"null", DynamicValue::NullObject{}}}}) {
    world.secrets->remove("Kite-User-Info");
    world.attribution = {[&](const auto& reply) { reply(details, std::nullopt); }};
    state->dependencies.set(world.dependencies());
    state->configureUserInfo();
    ASSERT_TRUE(stored().contains("search_ads"));
    EXPECT_EQ(*stored().at("search_ads"), JSONValue(Object()));
  }
}

TEST_F(KiteUserInfoTests, anAttributionReplyOfNeitherDetailsNorErrorLeavesTheUserInfoAsItWas) {
  int replies = 0;
  world.attribution = {[&](const AttributionClient::Callback& reply) {
    reply(std::nullopt, std::nullopt);
    ++replies;
  }};
  state->dependencies.set(world.dependencies());
  state->configureUserInfo();
  EXPECT_EQ(replies, 1);
  EXPECT_FALSE(stored().contains("search_ads"));
  EXPECT_EQ(updates().size(), 1U);
}

TEST_F(KiteUserInfoTests, anAttributionErrorLeavesTheUserInfoAsItWas) {
  world.attribution = {
      [](const AttributionClient::Callback& reply) { reply(std::nullopt, "no network"); }};
  state->dependencies.set(world.dependencies());
  state->configureUserInfo();
  EXPECT_FALSE(stored().contains("search_ads"));
  EXPECT_EQ(updates().size(), 1U);
}

TEST_F(KiteUserInfoTests, aLateAttributionReplyPutsTheStartUpValuesBack) {
  AttributionClient::Callback reply;
  world.attribution = {[&](const AttributionClient::Callback& callback) { reply = callback; }};
  state->dependencies.set(world.dependencies());
  state->configureUserInfo();
  state->updateUserInfo({{"locale", "mi_NZ"}});
  reply(AttributionClient::Details{{"id", 3}}, std::nullopt);
  EXPECT_EQ(*stored().at("locale"), JSONValue("en_US"));
}

TEST_F(KiteUserInfoTests, anAttributionReplyGoesIntoTheProfileThatItWasAskedFor) {
  AttributionClient::Callback reply;
  world.attribution = {[&](const AttributionClient::Callback& callback) { reply = callback; }};
  state->start(world.dependencies());
  const auto first = std::exchange(world.secrets, std::make_shared<InMemorySecretsStorage>());
  world.attribution = AttributionClient::none();
  state->start(world.dependencies());
  const auto reported = updates().size();
  reply(AttributionClient::Details{{"id", 3}}, std::nullopt);
  const auto asked = UserInfoStore::userInfo(*first)->data;
  ASSERT_TRUE(asked.contains("search_ads"));
  EXPECT_EQ(*asked.at("search_ads"), JSONValue(Object{{"id", 3}}));
  EXPECT_FALSE(stored().contains("search_ads"));
  ASSERT_EQ(updates().size(), reported + 1);
  EXPECT_THAT(updates().back().updatedKeys, ElementsAre("search_ads"));
}

TEST_F(KiteUserInfoTests, anAttributionReplyAfterTheFacadeIsGoneDoesNothing) {
  AttributionClient::Callback reply;
  world.attribution = {[&](const AttributionClient::Callback& callback) { reply = callback; }};
  state->dependencies.set(world.dependencies());
  state->configureUserInfo();
  state.reset();
  reply(AttributionClient::Details{{"id", 3}}, std::nullopt);
  EXPECT_FALSE(stored().contains("search_ads"));
}

}  // namespace
}  // namespace kite::test
