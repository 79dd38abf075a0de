#include "EndToEnd/Arrivals.h"
#include "EndToEnd/StoredValues.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/utsname.h>

#include <csignal>

namespace kite::test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::Ge;
using testing::Le;
using testing::SizeIs;

const Arguments tokyo{"--bundle-version",     "34",       "--time-zone",          "Asia/Tokyo",
                      "--preferred-language", "en-NZ",    "--preferred-language", "mi-NZ",
                      "--storefront",         "143461:NZ"};

/// When a folder was made, in seconds since 1970; nothing where the file system does not remember.
std::optional<double> creationTime(const std::string& folder) {
  struct statx status {};
  if (::statx(AT_FDCWD, folder.c_str(), 0, STATX_BTIME, &status) != 0) return std::nullopt;
  if ((status.stx_mask & STATX_BTIME) == 0) return std::nullopt;
  return static_cast<double>(status.stx_btime.tv_sec) +
         static_cast<double>(status.stx_btime.tv_nsec) / 1e9;
}

std::string machineName() {
  utsname system{};
  ::uname(&system);
  return system.machine;
}

std::string quoted(const std::string& text) { return '"' + text + '"'; }

/// An application, launched once or more often, and what it reports.
class LifecycleTests : public testing::Test {
 protected:
  /// One run in the foreground; it quits in the middle of its session.
  std::vector<Event> launch(const Arguments& options = {}) {
    Host host(application, collector, options);
    host.start();
    auto events = arrivals.next(host);
    host.quit();
    return events;
  }
  std::vector<Event> firstLaunch(const Arguments& options = {}) {
    auto events = launch(options);
    EXPECT_THAT(types(events), ElementsAre("UserInfoUpdated", "Install", "Session"));
    events.resize(3);
    return events;
  }

  Collector collector;
  Application application;
  Arrivals arrivals{collector};
  StoredValues app = StoredValues::ofApp(application);
  StoredValues secrets = StoredValues::ofSecrets(application);
};

TEST_F(LifecycleTests, introducesTheUserAtAFirstLaunch) {
  const auto introduction = firstLaunch(tokyo).front();
  const auto& data = introduction.data;
  const auto system = partOf(data, "/new_user_info/device/ios_version");
  const auto model = partOf(data, "/new_user_info/device/type");
  const auto library = partOf(data, "/new_user_info/kite_lib_version");
  for (const auto& text : {system, model, library}) EXPECT_GT(text.size(), quoted("").size());
  const auto info =
      R"({"app_language":"en","app_version":"1.0","bundle_version":"34","country":"NZ",)"
      R"("device":{"all_languages":["en-NZ","mi-NZ"],"ios_version":)" +
      system + R"(,"language":"en-NZ","platform":)" + quoted(machineName()) + R"(,"type":)" +
      model + R"(},"is_frozen_app":null,"kite_lib_version":)" + library +
      R"(,"locale":"en_NZ",)"
      R"("timezone":{"daylight_saving":false,"name":"Asia/Tokyo","seconds":32400}})";
  EXPECT_EQ(data, R"({"lost_keys":[],"new_user_info":)" + info +
                      R"(,"old_user_info":{},"updated_keys":["app_language","app_version",)"
                      R"("bundle_version","country","device","is_frozen_app",)"
                      R"("kite_lib_version","locale","timezone"]})");
  EXPECT_EQ(introduction.userInfo, info);
}

TEST_F(LifecycleTests, reportsAFirstLaunchAsAnInstallWithoutAPast) {
  const auto install = firstLaunch(tokyo).at(1);
  const auto created = creationTime(application.state + "/app");
  const auto reported = partOf(install.data, "/document_directory_creation_timestamp");
  EXPECT_EQ(install.data, R"({"document_directory_creation_timestamp":)" + reported +
                              R"(,"installed_before_kite":false,)"
                              R"("keychain_id_status":"just_generated","new_app_version":"1.0",)"
                              R"("storefront_country_code":"NZ","storefront_id":"143461",)"
                              R"("userdefault_id_status":"just_generated"})");
  if (created) {
    EXPECT_NEAR(std::stod(reported), *created, 0.001);
  } else {
    EXPECT_EQ(reported, "null");
  }
  expectParts(install.userInfo, {{"/installed_before_kite", "false"}, {"/locale", R"("en_NZ")"}});
}

TEST_F(LifecycleTests, opensASessionAtAFirstLaunchInTheForeground) {
  Host host(application, collector, tokyo);
  host.start();
  const auto session = arrivals.next(host).back();
  EXPECT_EQ(session.type, "Session");
  EXPECT_EQ(session.data, R"({"storefront_country_code":"NZ","storefront_id":"143461",)"
                          R"("subtype":"session_start"})");
  EXPECT_EQ(quoted(session.id), host.read("currentSessionId"));
  EXPECT_EQ(session.userIDs, R"({"keychain_id":)" + host.read("keychainId") +
                                 R"(,"userdefault_id":)" + host.read("userDefaultsId") + "}");
  EXPECT_EQ(app.get("Kite-Last-Session"), app.get("Kite-Last-Foreground-Session"));
  expectParts(app.get("Kite-Last-Session").value_or(""), {{"/id", quoted(session.id)},
                                                          {"/session_data", "{}"},
                                                          {"/is_crashed", "false"},
                                                          {"/end_date", ""}});
}

TEST_F(LifecycleTests, opensNoSessionAtALaunchInTheBackground) {
  Host host(application, collector, {"--start-in-background"});
  host.start();
  host.track("early");
  ASSERT_TRUE(eventually([&] { return collector.events().size() >= 3; }));
  const auto events = collector.events();
  EXPECT_THAT(types(events), ElementsAre("UserInfoUpdated", "Install", "UserAction"));
  expectParts(events.back().data, {{"/session_id", "null"}, {"/is_background_event", "true"}});
  for (const auto* key : {"Kite-Last-Session", "Kite-Last-Foreground-Session"})
    EXPECT_EQ(app.get(key), std::nullopt);
}

TEST_F(LifecycleTests, reportsASessionThatWasKilledBeforeItOpensTheNextOne) {
  Host killed(application, collector);
  killed.start();
  const auto id = killed.read("currentSessionId");
  pause(4.3);  // halfway between two of the heartbeats that come every second
  killed.process.signal(SIGKILL);
  ASSERT_EQ(killed.process.wait(), -SIGKILL);

  Host host(application, collector);
  host.start();
  const auto events = arrivals.next(host);
  ASSERT_THAT(events, SizeIs(Ge(2U)));
  const auto& end = *std::prev(events.end(), 2);
  const auto& start = events.back();
  EXPECT_EQ(end.type, "Session");
  const auto duration = partOf(end.data, "/duration");
  EXPECT_EQ(end.data, R"({"crashed":true,"duration":)" + duration + R"(,"session_start_id":)" + id +
                          R"(,"subtype":"session_end"})");
  EXPECT_THAT(std::stod(duration), AllOf(Ge(3.0), Le(5.0)));
  EXPECT_EQ(start.type, "Session");
  EXPECT_EQ(start.data, R"({"subtype":"session_start"})");
  EXPECT_EQ(quoted(start.id), host.read("currentSessionId"));
  EXPECT_NE(quoted(start.id), id);
}

TEST_F(LifecycleTests, endsTheSessionWithItsDataWhenTheApplicationLeavesTheForeground) {
  Host host(application, collector);
  host.start();
  const auto first = host.read("currentSessionId");
  host.call(R"({"op":"addSessionData","key":"level","value":7})");
  host.call(R"({"op":"addSessionData","key":"duration","value":"dropped"})");
  host.call(R"({"op":"updateSessionData","with":{"level":8,"mood":"good"}})");
  host.enterBackground();
  EXPECT_EQ(app.get("Kite-Last-Session"), std::nullopt);
  EXPECT_EQ(app.get("Kite-Last-Session-Counter"), std::nullopt);
  expectParts(app.get("Kite-Last-Foreground-Session").value_or(""), {{"/id", first}});
  host.enterForeground();

  const auto events = arrivals.next(host);
  ASSERT_THAT(types(events),
              ElementsAre("UserInfoUpdated", "Install", "Session", "Session", "Session"));
  const auto duration = partOf(events[3].data, "/duration");
  EXPECT_EQ(events[3].data, R"({"crashed":false,"duration":)" + duration +
                                R"(,"level":8,"mood":"good","session_start_id":)" + first +
                                R"(,"subtype":"session_end"})");
  EXPECT_THAT(std::stod(duration), AllOf(Ge(0.0), Le(10.0)));
  EXPECT_EQ(events[4].data, R"({"subtype":"session_start"})");
  EXPECT_NE(quoted(events[4].id), first);
}

TEST_F(LifecycleTests, countsAnActionInTheBackgroundToTheLastSessionInTheForeground) {
  Host host(application, collector);
  host.start();
  const auto session = host.read("currentSessionId");
  host.enterBackground();
  host.track("late", R"({"n":1})");
  host.call(R"({"op":"trackCustomEvent","in":"Orders","data":{}})");  // for the foreground only
  host.enterForeground();
  const auto events = arrivals.next(host);
  ASSERT_THAT(types(events), ElementsAre("UserInfoUpdated", "Install", "Session", "Session",
                                         "UserAction", "Session"));
  EXPECT_EQ(events[4].data, R"({"action_info":{"n":1},"action_kind":"late",)"
                            R"("is_background_event":true,"last_foreground_session_id":)" +
                                session + R"(,"process_id":)" + host.read("currentProcessId") +
                                R"(,"seconds_from_session_start":null,"session_id":null})");
}

TEST_F(LifecycleTests, reportsAReinstallWithWhatTheSecretsRemember) {
  firstLaunch({"--bundle-version", "34", "--installed-before-kite"});
  const auto record = secrets.get("Kite-Install-Manager").value_or("");
  const auto userDefaultsID = app.get("Kite-User-Defaults-Id");
  const auto keychainID = secrets.get("Kite-Keychain-Id");
  std::filesystem::remove_all(application.state + "/app");

  const auto events = launch({"--bundle-version", "34"});
  ASSERT_THAT(types(events), ElementsAre("Install", "Session"));
  expectParts(events[0].data, {{"/userdefault_id_status", R"("just_generated")"},
                               {"/keychain_id_status", R"("read_from_file")"},
                               {"/old_app_version", R"("1.0")"},
                               {"/old_bundle_version", R"("34")"},
                               {"/new_app_version", R"("1.0")"},
                               {"/installed_before_kite", "true"}});
  EXPECT_EQ(events[1].data, R"({"subtype":"session_start"})");
  expectParts(events[0].userIDs, {{"/keychain_id", keychainID.value_or("")}});
  EXPECT_NE(app.get("Kite-User-Defaults-Id"), userDefaultsID);
  EXPECT_EQ(app.get("Kite-Install-Manager"), record);
  EXPECT_EQ(secrets.get("Kite-Install-Manager"), record);
}

TEST_F(LifecycleTests, reportsLostSecretsAsAnInstallWithWhatTheApplicationRemembers) {
  firstLaunch({"--bundle-version", "34"});
  const auto record = app.get("Kite-Install-Manager").value_or("");
  std::filesystem::remove_all(application.state + "/secrets");

  const auto events = launch({"--bundle-version", "34"});
  ASSERT_THAT(types(events), ElementsAre("UserInfoUpdated", "Install", "Session", "Session"));
  EXPECT_EQ(partOf(events[0].data, "/old_user_info"), "{}");
  expectParts(events[1].data, {{"/userdefault_id_status", R"("read_from_file")"},
                               {"/keychain_id_status", R"("just_generated")"},
                               {"/old_app_version", R"("1.0")"},
                               {"/old_bundle_version", R"("34")"},
                               {"/new_app_version", R"("1.0")"},
                               {"/installed_before_kite", "false"}});
  EXPECT_EQ(secrets.get("Kite-Install-Manager"), record);
}

TEST_F(LifecycleTests, reportsANewVersionOnceWithTheOldOneBesideIt) {
  firstLaunch({"--bundle-version", "34"});
  const auto installed = partOf(*app.get("Kite-Install-Manager"), "/firstInstallTimestamp");
  application.version = "2.0";
  const auto update = launch({"--bundle-version", "40"});
  ASSERT_THAT(types(update), ElementsAre("UserInfoUpdated", "Install", "Session", "Session"));
  expectParts(update[0].data, {{"/updated_keys", R"(["app_version","bundle_version"])"},
                               {"/lost_keys", "[]"},
                               {"/old_user_info/app_version", R"("1.0")"},
                               {"/new_user_info/app_version", R"("2.0")"},
                               {"/old_user_info/bundle_version", R"("34")"},
                               {"/new_user_info/bundle_version", R"("40")"}});
  expectParts(update[1].data, {{"/old_app_version", R"("1.0")"},
                               {"/old_bundle_version", R"("34")"},
                               {"/new_app_version", R"("2.0")"},
                               {"/keychain_id_status", R"("read_from_file")"},
                               {"/userdefault_id_status", R"("read_from_file")"},
                               {"/installed_before_kite", "false"}});
  const auto record = R"({"appVersion":"2.0","bundleVersion":"40","firstInstallTimestamp":)" +
                      installed + R"(,"installedBeforeKite":false})";
  EXPECT_EQ(app.get("Kite-Install-Manager"), record);
  EXPECT_EQ(secrets.get("Kite-Install-Manager"), record);
  EXPECT_THAT(types(launch({"--bundle-version", "40"})), ElementsAre("Session", "Session"));
}

TEST_F(LifecycleTests, doesNotTakeANewBuildOfTheSameVersionForAnInstall) {
  firstLaunch({"--bundle-version", "34"});
  const auto events = launch({"--bundle-version", "35"});
  ASSERT_THAT(types(events), ElementsAre("UserInfoUpdated", "Session", "Session"));
  EXPECT_EQ(partOf(events[0].data, "/updated_keys"), R"(["bundle_version"])");
  expectParts(*app.get("Kite-Install-Manager"), {{"/bundleVersion", R"("34")"}});
}

TEST_F(LifecycleTests, reportsOnlySessionsWhenNothingHasChanged) {
  firstLaunch();
  const auto inApp = app.get("Kite-Install-Manager");
  const auto inSecrets = secrets.get("Kite-Install-Manager");
  ASSERT_NE(inApp, std::nullopt);
  const auto events = launch();
  ASSERT_THAT(types(events), ElementsAre("Session", "Session"));
  expectParts(events[0].data, {{"/subtype", R"("session_end")"}, {"/crashed", "true"}});
  EXPECT_EQ(events[1].data, R"({"subtype":"session_start"})");
  EXPECT_EQ(app.get("Kite-Install-Manager"), inApp);
  EXPECT_EQ(secrets.get("Kite-Install-Manager"), inSecrets);
}

}  // namespace
}  // namespace kite::test
