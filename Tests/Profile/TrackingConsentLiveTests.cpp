#include <Kite/TrackingConsentManager.h>

#include "Support/CatchFatalErrors.h"
#include "Support/InMemoryKVStorage.h"
#include "Support/ParsedJSON.h"

#include <gmock/gmock.h>

#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace kite::test {
namespace {

constexpr auto consentKey = "kite_tracking_consent";

class TrackingConsentLiveTests : public testing::Test {
 protected:
  std::shared_ptr<InMemoryKVStorage> keyValues = std::make_shared<InMemoryKVStorage>();
  TrackingConsentManager consent = TrackingConsentManager::live();

  void start() { consent._start(keyValues); }
  bool allows(std::string_view name) { return consent._canTrackUserAction(name); }
  void set(bool analytics, bool profiling) {
    consent._setAnalyticsTrackingConsent(analytics);
    consent._setProfilingTrackingConsent(profiling);
  }
};

TEST_F(TrackingConsentLiveTests, beforeStartEveryNameIsRefused) {
  EXPECT_FALSE(allows("buy"));
  EXPECT_FALSE(allows("privacy_settings_updated"));
  EXPECT_FALSE(allows("asa_attribution"));
}

TEST_F(TrackingConsentLiveTests, aFreshStoreAllowsEveryNameAndStaysEmpty) {
  start();
  EXPECT_TRUE(allows("buy"));
  EXPECT_TRUE(allows("privacy_settings_updated"));
  EXPECT_EQ(keyValues->writes(), 0);
}

TEST_F(TrackingConsentLiveTests, eitherConsentSufficesForAnOrdinaryName) {
  start();
  set(false, true);
  EXPECT_TRUE(allows("buy"));
  set(true, false);
  EXPECT_TRUE(allows("buy"));
}

TEST_F(TrackingConsentLiveTests, withoutAnyConsentOnlyTechnicalNamesPass) {
  start();
  set(false, false);
  EXPECT_FALSE(allows("buy"));
  EXPECT_TRUE(allows("privacy_settings_updated"));
  EXPECT_TRUE(allows("asa_attribution"));
  EXPECT_FALSE(allows("PRIVACY_SETTINGS_UPDATED"));
}

TEST_F(TrackingConsentLiveTests, aProfilingOnlyNameNeedsTheProfilingConsent) {
  start();
  consent._addProfilingOnlyEvents({"profile"});
  set(true, false);
  EXPECT_FALSE(allows("profile"));
  EXPECT_TRUE(allows("buy"));
  set(false, true);
  EXPECT_TRUE(allows("profile"));
}

TEST_F(TrackingConsentLiveTests, aProfilingOnlyNameThatIsTechnicalTooPassesAnyway) {
  start();
  consent._addTechnicalEvents({"both"});
  consent._addProfilingOnlyEvents({"both"});
  set(false, false);
  EXPECT_TRUE(allows("both"));
}

TEST_F(TrackingConsentLiveTests, addedTechnicalNamesJoinTheBuiltInOnes) {
  start();
  consent._addTechnicalEvents({"a"});
  consent._addTechnicalEvents({"b"});
  set(false, false);
  EXPECT_TRUE(allows("a"));
  EXPECT_TRUE(allows("b"));
  EXPECT_TRUE(allows("asa_attribution"));
}

TEST_F(TrackingConsentLiveTests, namesMayBeAddedBeforeStartAndAreNeverStored) {
  consent._addTechnicalEvents({"technical"});
  consent._addProfilingOnlyEvents({"profile"});
  start();
  EXPECT_EQ(keyValues->writes(), 0);
  set(true, false);
  EXPECT_TRUE(allows("technical"));
  EXPECT_FALSE(allows("profile"));
}

TEST_F(TrackingConsentLiveTests, aSetterStoresBothConsents) {
  start();
  consent._setAnalyticsTrackingConsent(false);
  EXPECT_EQ(parsed(keyValues->text(consentKey)),
            parsed(R"({"analytics": false, "profiling": true})"));
  consent._setProfilingTrackingConsent(false);
  EXPECT_EQ(parsed(keyValues->text(consentKey)),
            parsed(R"({"analytics": false, "profiling": false})"));
  consent._setAnalyticsTrackingConsent(true);
  EXPECT_EQ(parsed(keyValues->text(consentKey)),
            parsed(R"({"analytics": true, "profiling": false})"));
}

TEST_F(TrackingConsentLiveTests, aStoredConsentIsReadAtStart) {
  keyValues->put(consentKey, R"({"analytics": false, "profiling": false})");
  start();
  EXPECT_FALSE(allows("buy"));
}

TEST_F(TrackingConsentLiveTests, aStoredRecordThatDoesNotDecodeGrantsBoth) {
  keyValues->put(consentKey, R"({"analytics": false})");
  start();
  consent._addProfilingOnlyEvents({"profile"});
  EXPECT_TRUE(allows("profile"));
  EXPECT_TRUE(allows("buy"));
  EXPECT_EQ(keyValues->text(consentKey), R"({"analytics": false})");
}

TEST_F(TrackingConsentLiveTests, aSetterBeforeStartStopsTheProcess) {
  EXPECT_FATAL(consent._setAnalyticsTrackingConsent(true),
               "TrackingConsentManager not started yet");
  EXPECT_FATAL(consent._setProfilingTrackingConsent(true),
               "TrackingConsentManager not started yet");
}

TEST_F(TrackingConsentLiveTests, aSetterBeforeStartIsReportedFromItsFixedPlace) {
  const auto raised = fatalErrorOf([&] { consent._setAnalyticsTrackingConsent(true); });
  ASSERT_TRUE(raised);
  EXPECT_STREQ(raised->where.file, "Kite/TrackingConsent+Live");
}

TEST_F(TrackingConsentLiveTests, aSetterWritesAnUnchangedValueToo) {
  start();
  consent._setAnalyticsTrackingConsent(true);
  EXPECT_EQ(keyValues->writes(), 1);
  EXPECT_EQ(parsed(keyValues->text(consentKey)),
            parsed(R"({"analytics": true, "profiling": true})"));
  consent._setProfilingTrackingConsent(true);
  EXPECT_EQ(keyValues->writes(), 2);
}

TEST_F(TrackingConsentLiveTests, anotherStartReadsTheConsentsOfItsStore) {
  start();
  set(false, false);
  keyValues = std::make_shared<InMemoryKVStorage>();
  keyValues->put(consentKey, R"({"analytics": true, "profiling": false})");
  consent._addProfilingOnlyEvents({"profile"});
  start();
  EXPECT_TRUE(allows("buy"));
  EXPECT_FALSE(allows("profile"));
  consent._setProfilingTrackingConsent(true);
  EXPECT_EQ(parsed(keyValues->text(consentKey)),
            parsed(R"({"analytics": true, "profiling": true})"));
}

// Of the two writes the first change's comes last, as it would on another thread that was
// interrupted before it.
TEST_F(TrackingConsentLiveTests, aWriteThatALaterChangeOvertookIsFollowedByTheLatest) {
  start();
  std::vector<std::string> written;
  bool isOvertaken = false;
  keyValues->onWrite = [&] {
    if (std::exchange(isOvertaken, true)) return written.push_back(keyValues->text(consentKey));
    consent._setProfilingTrackingConsent(false);
  };
  consent._setAnalyticsTrackingConsent(false);
  ASSERT_EQ(written.size(), 2U);
  EXPECT_EQ(parsed(keyValues->text(consentKey)),
            parsed(R"({"analytics": false, "profiling": false})"));
  EXPECT_EQ(parsed(written.back()), parsed(R"({"analytics": false, "profiling": true})"))
      << "the older change was written over the later one before that was written again";
}

TEST_F(TrackingConsentLiveTests, copiesShareTheirState) {
  const auto copy = consent;
  start();
  copy._setAnalyticsTrackingConsent(false);
  copy._setProfilingTrackingConsent(false);
  EXPECT_FALSE(allows("buy"));
}

TEST_F(TrackingConsentLiveTests, liveManagersAreIndependent) {
  start();
  set(false, false);
  const auto other = TrackingConsentManager::live();
  other._start(std::make_shared<InMemoryKVStorage>());
  EXPECT_TRUE(other._canTrackUserAction("buy"));
}

TEST_F(TrackingConsentLiveTests, theStoredConsentIsTheLastOneWhoeverSetIt) {
  start();
  std::thread analytics([&] {
    for (int i = 0; i < 200; ++i) consent._setAnalyticsTrackingConsent(i % 2 == 0);
  });
  std::thread profiling([&] {
    for (int i = 0; i < 200; ++i) consent._setProfilingTrackingConsent(i % 2 == 0);
  });
  for (int i = 0; i < 200; ++i) EXPECT_TRUE(allows("asa_attribution"));
  analytics.join();
  profiling.join();
  EXPECT_EQ(parsed(keyValues->text(consentKey)),
            parsed(R"({"analytics": false, "profiling": false})"));
}

}  // namespace
}  // namespace kite::test
