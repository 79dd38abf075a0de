#include "EndToEnd/Arrivals.h"
#include "EndToEnd/StoredValues.h"

#include <gmock/gmock.h>

namespace kite::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// An application in the foreground whose user makes up their mind.
class ConsentTests : public testing::Test {
 protected:
  static void set(Host& host, bool analytics, bool profiling) {
    const auto line = [](const std::string& consent, bool value) {
      return R"({"op":"set)" + consent + R"(TrackingConsent","value":)" +
             (value ? "true" : "false") + "}";
    };
    host.call(line("Analytics", analytics));
    host.call(line("Profiling", profiling));
  }

  static void startWithoutConsent(Host& host) {
    host.start();
    set(host, false, false);
  }
  /// What the host has reported since its first launch.
  std::vector<Event> reported(Host& host) {
    const auto events = arrivals.next(host);
    if (events.size() < 3) throw std::runtime_error("a first launch reports three events");
    EXPECT_THAT(types({events.begin(), events.begin() + 3}),
                ElementsAre("UserInfoUpdated", "Install", "Session"));
    return {events.begin() + 3, events.end()};
  }
  /// The names of these actions, and their numbers.
  static std::vector<std::string> actions(const std::vector<Event>& events) {
    std::vector<std::string> result;
    for (const auto& event : events) {
      EXPECT_EQ(event.type, "UserAction") << event.data;
      result.push_back(partOf(event.data, "/action_kind") + partOf(event.data, "/action_info/n"));
    }
    return result;
  }

  Collector collector;
  Application application;
  Arrivals arrivals{collector};
  StoredValues app = StoredValues::ofApp(application);
};

TEST_F(ConsentTests, isGivenUntilItIsWithdrawn) {
  Host host(application, collector);
  host.start();
  host.call(R"({"op":"addProfilingOnlyEvents","names":["taste"]})");
  host.track("buy");
  host.track("taste");
  EXPECT_THAT(actions(reported(host)), ElementsAre(R"("buy")", R"("taste")"));
  EXPECT_EQ(app.get("kite_tracking_consent"), std::nullopt);
}

TEST_F(ConsentTests, stopsActionsButTheTechnicalOnesWhenBothAreWithdrawn) {
  Host host(application, collector);
  startWithoutConsent(host);
  host.call(R"({"op":"addTechnicalEvents","names":["heartbeat","both"]})");
  host.call(R"({"op":"addProfilingOnlyEvents","names":["taste","both"]})");
  for (const auto* name : {"buy", "privacy_settings_updated", "taste", "asa_attribution",
                           "heartbeat", "Heartbeat", "both", "PRIVACY_SETTINGS_UPDATED"})
    host.track(name);
  EXPECT_THAT(actions(reported(host)),
              ElementsAre(R"("privacy_settings_updated")", R"("asa_attribution")", R"("heartbeat")",
                          R"("both")"));
}

TEST_F(ConsentTests, leavesATechnicalActionWhole) {
  Host host(application, collector);
  startWithoutConsent(host);
  host.track("privacy_settings_updated", R"({"analytics":false})");
  const auto events = reported(host);
  ASSERT_THAT(types(events), ElementsAre("UserAction"));
  const auto age = partOf(events[0].data, "/seconds_from_session_start");
  EXPECT_EQ(events[0].data, R"({"action_info":{"analytics":false},)"
                            R"("action_kind":"privacy_settings_updated",)"
                            R"("is_background_event":false,"last_foreground_session_id":null,)"
                            R"("process_id":)" +
                                host.read("currentProcessId") +
                                R"(,"seconds_from_session_start":)" + age + R"(,"session_id":)" +
                                host.read("currentSessionId") + "}");
  EXPECT_GE(std::stod(age), 0.0);
}

TEST_F(ConsentTests, letsEitherOneDoForActionsButProfilingAloneForItsOwn) {
  Host host(application, collector);
  host.start();
  host.call(R"({"op":"addProfilingOnlyEvents","names":["taste"]})");
  const auto trackBoth = [&](const std::string& number) {
    for (const auto* name : {"buy", "taste"}) host.track(name, R"({"n":)" + number + "}");
  };
  set(host, false, true);
  trackBoth("1");
  set(host, true, false);
  trackBoth("2");
  set(host, false, false);
  trackBoth("3");
  set(host, true, true);
  trackBoth("4");
  EXPECT_THAT(actions(reported(host)),
              ElementsAre(R"("buy"1)", R"("taste"1)", R"("buy"2)", R"("buy"4)", R"("taste"4)"));
}

TEST_F(ConsentTests, staysWithdrawnInTheNextRunWhileAddedNamesAreForgotten) {
  {
    Host host(application, collector);
    startWithoutConsent(host);
    host.call(R"({"op":"addTechnicalEvents","names":["heartbeat"]})");
    EXPECT_EQ(app.get("kite_tracking_consent"), R"({"analytics":false,"profiling":false})");
    EXPECT_THAT(reported(host), IsEmpty());
    host.quit();
  }
  Host host(application, collector);
  host.start();
  for (const auto* name : {"buy", "heartbeat", "asa_attribution"}) host.track(name);
  const auto events = arrivals.next(host);
  ASSERT_THAT(types(events), ElementsAre("Session", "Session", "UserAction"));
  EXPECT_THAT(actions({events.back()}), ElementsAre(R"("asa_attribution")"));
  set(host, true, false);
  EXPECT_EQ(app.get("kite_tracking_consent"), R"({"analytics":true,"profiling":false})");
}

TEST_F(ConsentTests, doesNotMatterForChangesOfTheProfile) {
  Host host(application, collector);
  startWithoutConsent(host);
  host.call(R"({"op":"addUserInfo","key":"a","value":1})");
  host.call(R"({"op":"updateUserInfo","with":{"a":1,"b":[true,null]}})");
  host.call(R"({"op":"monetizationFieldsDidChange","newValue":{"plan":"b","x":1}})");
  host.call(R"({"op":"monetizationFieldsDidChange","newValue":{"plan":"c"}})");
  host.call(R"({"op":"isBaselineUserDidChange","newValue":true})");
  host.call(R"({"op":"isBaselineUserDidChange","newValue":true})");  // which it already is
  host.call(R"({"op":"isFreeUserDidChange","newValue":false})");
  const auto events = reported(host);
  ASSERT_THAT(types(events), ElementsAre("UserInfoUpdated", "UserInfoUpdated", "UserInfoUpdated",
                                         "UserInfoUpdated", "UserInfoUpdated", "UserInfoUpdated"));
  const auto expectChange = [](const Event& event, const std::string& keys,
                               const std::string& pointer, const std::string& before,
                               const std::string& after) {
    expectParts(event.data, {{"/updated_keys", keys},
                             {"/lost_keys", "[]"},
                             {"/old_user_info" + pointer, before},
                             {"/new_user_info" + pointer, after}});
    expectParts(event.userInfo, {{pointer, after}});
  };
  expectChange(events[0], R"(["a"])", "/a", "", "1");
  expectChange(events[1], R"(["b"])", "/b", "", "[true,null]");
  expectChange(events[2], R"(["monetization"])", "/monetization", "", R"({"plan":"b","x":1})");
  expectChange(events[3], R"(["monetization.plan"])", "/monetization", R"({"plan":"b","x":1})",
               R"({"plan":"c","x":1})");
  expectChange(events[4], R"(["is_baseline"])", "/is_baseline", "", "true");
  expectChange(events[5], R"(["is_free"])", "/is_free", "", "false");
}

TEST_F(ConsentTests, doesNotMatterForExperimentSegments) {
  Host host(application, collector);
  startWithoutConsent(host);
  host.call(R"({"op":"trackExperimentSegmentsReceived","segments":{"s":2,"t":0}})");
  host.call(R"({"op":"trackExperimentSegmentsReceived","segments":{"s":2,"t":0}})");
  const auto events = reported(host);
  ASSERT_THAT(types(events), ElementsAre("UserInfoUpdated", "ExperimentSegmentReceived",
                                         "ExperimentSegmentReceived"));
  expectParts(events[0].data, {{"/updated_keys", R"(["experiment"])"},
                               {"/new_user_info/experiment", R"({"s":2,"t":0})"}});
  for (const auto at : {1U, 2U}) {
    EXPECT_EQ(events[at].data, "{}");
    expectParts(events[at].userInfo, {{"/experiment", R"({"s":2,"t":0})"}});
  }
}

TEST_F(ConsentTests, doesNotMatterForTheHostsOwnTables) {
  Host host(application, collector);
  startWithoutConsent(host);
  host.call(R"({"op":"trackCustomEvent","in":"Orders","data":{"price":9.5,"gift":true}})");
  const auto events = reported(host);
  ASSERT_THAT(types(events), ElementsAre("Orders"));
  EXPECT_EQ(events[0].data, R"({"gift":true,"price":9.5})");
}

TEST_F(ConsentTests, doesNotMatterForDebugEvents) {
  Host host(application, collector);
  startWithoutConsent(host);
  host.call(R"({"op":"trackLog","name":"slow","severity":"Notice","data":{"n":1}})");
  host.call(R"({"op":"trackDebugEvent","severity":"Critical","message":"m","category":"c",)"
            R"("domain":"d","code":"7","type":"t","description":"e","info":{"n":2.0},)"
            R"("file":"f.cpp","function":"g","line":42})");
  const auto events = reported(host);
  ASSERT_THAT(types(events), ElementsAre("DebugEvent", "DebugEvent"));
  const auto file = partOf(events[0].data, "/file");
  EXPECT_THAT(file, HasSubstr("Kite"));
  EXPECT_EQ(events[0].data,
            R"({"category":"track_log_legacy","code":null,"description":null,"domain":null,)"
            R"("file":)" +
                file +
                R"-(,"function":"trackLog(name:severity:data:)","info":{"n":1},"line":618,)-"
                R"("message":"slow","severity":"Notice","type":null})");
  EXPECT_EQ(events[1].data,
            R"({"category":"c","code":"7","description":"e","domain":"d","file":"f.cpp",)"
            R"("function":"g","info":{"n":2.0},"line":42,"message":"m","severity":"Critical",)"
            R"("type":"t"})");
}

TEST_F(ConsentTests, doesNotMatterForSessionsAndTheirData) {
  Host host(application, collector);
  startWithoutConsent(host);
  const auto session = host.read("currentSessionId");
  host.call(R"({"op":"addSessionData","key":"level","value":7})");
  host.call(R"({"op":"updateSessionData","with":{"mood":"good"}})");
  host.track("buy");
  host.enterBackground();
  host.track("buy");
  host.enterForeground();
  const auto events = reported(host);
  ASSERT_THAT(types(events), ElementsAre("Session", "Session"));
  const auto duration = partOf(events[0].data, "/duration");
  EXPECT_EQ(events[0].data, R"({"crashed":false,"duration":)" + duration +
                                R"(,"level":7,"mood":"good","session_start_id":)" + session +
                                R"(,"subtype":"session_end"})");
  EXPECT_EQ(events[1].data, R"({"subtype":"session_start"})");
}

TEST_F(ConsentTests, doesNotMatterForTheInstallsAndSessionsOfTheNextRun) {
  {
    Host host(application, collector);
    startWithoutConsent(host);
    EXPECT_THAT(reported(host), IsEmpty());
    host.quit();
  }
  application.version = "2.0";
  Host host(application, collector);
  host.start();
  const auto events = arrivals.next(host);
  ASSERT_THAT(types(events), ElementsAre("UserInfoUpdated", "Install", "Session", "Session"));
  expectParts(events[1].data, {{"/old_app_version", R"("1.0")"}, {"/new_app_version", R"("2.0")"}});
  expectParts(events[2].data, {{"/subtype", R"("session_end")"}, {"/crashed", "true"}});
  EXPECT_EQ(events[3].data, R"({"subtype":"session_start"})");
}

}  // namespace
}  // namespace kite::test
