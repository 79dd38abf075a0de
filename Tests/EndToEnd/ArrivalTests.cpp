#include "EndToEnd/Host.h"

#include <gmock/gmock.h>

#include <csignal>

namespace kite::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

const Event* find(const std::vector<Event>& events, const std::string& type,
                  const std::string& json = "") {
  const auto found = std::find_if(events.begin(), events.end(), [&](const auto& event) {
    return event.type == type && event.has(json);
  });
  return found == events.end() ? nullptr : &*found;
}

/// An application and the collector that it reports to.
class ArrivalTests : public testing::Test {
 protected:
  /// The first event of that type with that text in its data, once it has arrived.
  Event arrived(const std::string& type, const std::string& json = "") {
    std::vector<Event> events;
    const bool is = eventually([&] {
      events = collector.events();
      return find(events, type, json) != nullptr;
    });
    EXPECT_TRUE(is) << type << " " << json << " does not arrive\n" << contents(application.log);
    return is ? *find(events, type, json) : Event{};
  }

  Collector collector;
  Application application;
};

TEST_F(ArrivalTests, deliversTheEventsOfAFirstLaunchInTheirOrder) {
  Host host(application, collector);
  host.start();
  arrived("Session");
  EXPECT_THAT(types(collector.events()), ElementsAre("UserInfoUpdated", "Install", "Session"));
  EXPECT_THAT(arrived("Session").data, HasSubstr(R"("subtype":"session_start")"));
  EXPECT_THAT(arrived("Install").data, HasSubstr(R"("new_app_version":"1.0")"));
}

TEST_F(ArrivalTests, deliversEveryKindOfValueAsItWasTracked) {
  Host host(application, collector);
  host.start();
  host.track("values",
             R"({"int":3,"big":9223372036854775807,"whole":3.0,"tenth":0.1,"huge":1e300,)"
             R"("tiny":-5E-324,"yes":true,"no":false,"none":null,"text":"na\u00efve ☕ 地図",)"
             R"("quoted":"\"\\\n","list":[1,1.0,"x",null,{"a":[]}],"object":{"k":{"l":-7}}})");
  const auto data = arrived("UserAction").data;
  for (const auto* expected :
       {R"("int":3,)", R"("big":9223372036854775807)", R"("whole":3.0)", R"("tenth":0.1)",
        R"("huge":1e+300)", R"("tiny":-5e-324)", R"("yes":true)", R"("no":false)", R"("none":null)",
        "\"text\":\"na\u00efve \u2615 \u5730\u56f3\"", R"("quoted":"\"\\\n")",
        R"("list":[1,1.0,"x",null,{"a":[]}])", R"("object":{"k":{"l":-7}})"})
    EXPECT_THAT(data, HasSubstr(expected));
}

TEST_F(ArrivalTests, deliversTheHostsOwnTablesAndDebugEvents) {
  Host host(application, collector);
  host.start();
  host.call(R"({"op":"trackCustomEvent","in":"Orders","data":{"price":9.50,"items":2}})");
  host.call(R"({"op":"trackDebugEvent","severity":"Error","message":"m","category":"c",)"
            R"("domain":"d","file":"f.cpp","function":"g","line":42,"info":{"a":1}})");
  EXPECT_EQ(arrived("Orders").data, R"({"items":2,"price":9.5})");
  const auto data = arrived("DebugEvent").data;
  for (const auto* expected :
       {R"("severity":"Error")", R"("message":"m")", R"("category":"c")", R"("domain":"d")",
        R"("code":null)", R"("type":null)", R"("description":null)", R"("info":{"a":1})",
        R"("file":"f.cpp")", R"("function":"g")", R"("line":42)"})
    EXPECT_THAT(data, HasSubstr(expected));
}

TEST_F(ArrivalTests, deliversTheHostsIdentifiersWithEveryEvent) {
  Host host(application, collector, {"--custom-id", "crew=a1"});
  host.start();
  host.track("x");
  EXPECT_THAT(arrived("UserAction").userIDs, HasSubstr(R"("crew":"a1")"));
  EXPECT_THAT(arrived("Install").userIDs, HasSubstr(R"("crew":"a1")"));
}

TEST_F(ArrivalTests, keepsWhatIsTrackedInTheBackgroundForTheNextRun) {
  const ClosedPort closed;
  {
    Host host(application, closed.url(), collector.ca(), {"--start-in-background"});
    host.start();
    host.track("kept");
    EXPECT_TRUE(eventually([&] { return queued(application.state).size() == 3; }));
    host.process.signal(SIGKILL);
  }
  const auto kept = queued(application.state);
  Host host(application, collector, {"--start-in-background"});
  host.start();
  EXPECT_EQ(arrived("UserAction").id, kept.back().id);
  EXPECT_TRUE(eventually([&] { return queued(application.state).empty(); }));
}

TEST_F(ArrivalTests, losesWhatWasTrackedInTheForegroundSinceTheLastFlushWhenTheHostQuits) {
  const ClosedPort closed;
  Host host(application, closed.url(), collector.ca());
  host.start();
  host.track("lost");
  host.quit();
  EXPECT_TRUE(queued(application.state).empty());
}

TEST_F(ArrivalTests, savesTheQueueWhenASessionEnds) {
  const ClosedPort closed;
  Host host(application, closed.url(), collector.ca());
  host.start();
  host.track("saved");
  host.enterBackground();
  EXPECT_TRUE(eventually([&] { return queued(application.state).size() == 5; }));
  host.process.signal(SIGKILL);
  EXPECT_THAT(types(queued(application.state)),
              ElementsAre("UserInfoUpdated", "Install", "Session", "UserAction", "Session"));
}

TEST_F(ArrivalTests, drainsTheQueueInTheBackgroundWhenSyncingGoesOnAfterTheSession) {
  Host host(application, collector, {"--sync-on-session-end"});
  host.start();
  host.enterBackground();
  host.track("late");
  arrived("UserAction");
  EXPECT_TRUE(eventually([&] { return queued(application.state).empty(); }));
  host.quit();
}

TEST_F(ArrivalTests, reportsASessionThatACrashCutShort) {
  {
    Host host(application, collector);
    host.start();
    host.call(R"({"op":"addSessionData","key":"level","value":7})");
    host.call(R"({"op":"wait","seconds":4.2})");
    host.call(R"({"op":"crash"})");
    EXPECT_EQ(host.process.wait(), -SIGKILL);
  }
  const auto start = arrived("Session", "session_start");
  Host host(application, collector);
  host.start();
  const auto end = arrived("Session", "session_end");
  EXPECT_THAT(end.data, HasSubstr(R"("crashed":true)"));
  EXPECT_THAT(end.data, HasSubstr(R"("level":7)"));
  EXPECT_THAT(end.data, HasSubstr("\"session_start_id\":\"" + start.id + "\""));
  const auto at = end.data.find("\"duration\":");
  ASSERT_NE(at, end.data.npos);
  const auto duration = std::stod(end.data.substr(at + 11));
  EXPECT_GE(duration, 2.5);
  EXPECT_LE(duration, 5.5);
}

}  // namespace
}  // namespace kite::test
