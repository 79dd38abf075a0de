#include "EndToEnd/Arrivals.h"
#include "EndToEnd/LegacyArchives.h"
#include "EndToEnd/StoredValues.h"

#include <gmock/gmock.h>

namespace kite::test {
namespace {

using testing::ElementsAre;

constexpr const char* userInfoKey = "Kite-User-Info";
constexpr const char* legacyUserInfoKey = "USUserInfo";
constexpr const char* installKey = "Kite-Install-Manager";
constexpr const char* legacyInstallKey = "VLInstallManager";

constexpr const char* legacyInstall =
    R"({"Last-App-Version":"0.8","Install-Timestamp":1500000000.5,"Installed-Before-Kite":true})";

/// An application that finds what an earlier version of it has left behind.
class MigrationTests : public testing::Test {
 protected:
  std::vector<Event> launch() {
    Host host(application, collector);
    host.start();
    auto events = arrivals.next(host);
    host.quit();
    return events;
  }
  /// The first launch over what an earlier version has left.
  std::vector<Event> update() {
    auto events = launch();
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

TEST_F(MigrationTests, takesTheUserInfoOfAKeyedArchiveOverValueForValue) {
  secrets.put(legacyUserInfoKey, keyedArchive(R"({
      "text": "na\u00efve ☕ 地図", "empty": "", "buffer": {"$mutable": "typed"},
      "count": 42, "below": -7, "largest": 9223372036854775807, "beyond": 18446744073709551615,
      "ratio": 0.25, "whole": 3.0, "huge": 1e300, "yes": true, "no": false, "none": null,
      "list": ["a", 1, 2.5, false, null, ["deep"]], "items": {"$mutable": [1]},
      "address": {"city": "Wellington", "zip": 6011}, "extra": {"$mutable": {"k": "v"}}})"),
              "data");
  EXPECT_EQ(partOf(update()[0].data, "/old_user_info"),
            "{\"address\":{\"city\":\"Wellington\",\"zip\":6011},"
            "\"below\":-7,\"beyond\":18446744073709551616.0,\"buffer\":\"typed\",\"count\":42,"
            "\"empty\":\"\",\"extra\":{\"k\":\"v\"},\"huge\":1e+300,\"items\":[1],"
            "\"largest\":9223372036854775807,\"list\":[\"a\",1,2.5,false,null,[\"deep\"]],"
            "\"no\":false,\"none\":null,\"ratio\":0.25,"
            "\"text\":\"na\u00efve \u2615 \u5730\u56f3\",\"whole\":3,\"yes\":true}");
}

TEST_F(MigrationTests, keepsMigratedUserInfoBesideWhatAStartAdds) {
  const auto archive = keyedArchive(R"({"age": 37, "app_version": "0.9", "country": "CH"})");
  secrets.put(legacyUserInfoKey, archive, "data");
  const auto events = update();
  for (const auto& event : events)
    expectParts(event.userInfo,
                {{"/age", "37"}, {"/app_version", R"("1.0")"}, {"/country", R"("NZ")"}});
  expectParts(*secrets.get(userInfoKey), {{"/data/age", "37"}, {"/data/country", R"("NZ")"}});
  EXPECT_EQ(secrets.get(legacyUserInfoKey), archive);
}

TEST_F(MigrationTests, gathersFlatExperimentsUnderOneKey) {
  secrets.put(legacyUserInfoKey,
              keyedArchive(R"({"experiment_color": "blue", "experiment_size": 3, "age": 37})"),
              "data");
  EXPECT_EQ(partOf(update()[0].data, "/old_user_info"),
            R"({"age":37,"experiment":{"color":"blue","size":3}})");
}

TEST_F(MigrationTests, letsTheLaterOfAPlainExperimentAndAFlatOneWin) {
  secrets.put(legacyUserInfoKey, keyedArchive(R"({"experiment": "plain", "experiment_a": 1})"),
              "data");
  EXPECT_EQ(partOf(update()[0].data, "/old_user_info"), R"({"experiment":{"a":1}})");
  std::filesystem::remove_all(application.state);
  secrets.put(legacyUserInfoKey, keyedArchive(R"({"experiment_a": 1, "experiment": "plain"})"),
              "data");
  EXPECT_EQ(partOf(update()[0].data, "/old_user_info"), R"({"experiment":"plain"})");
}

TEST_F(MigrationTests, dropsTheNameOfTheDeviceAndWritesTheBuildAsText) {
  secrets.put(legacyUserInfoKey, keyedArchive(R"({
      "device_name": "Ann's phone", "device": {"name": "Ann's phone", "model": "x"},
      "bundle_version": 120})"),
              "data");
  const auto events = update();
  EXPECT_EQ(partOf(events[0].data, "/old_user_info"),
            R"({"bundle_version":"120","device":{"model":"x"}})");
  for (const auto& event : events) EXPECT_EQ(event.userInfo.find("Ann"), std::string::npos);
}

TEST_F(MigrationTests, takesTheUserInfoOverAgainWhenTheCurrentOneCannotBeRead) {
  secrets.put(legacyUserInfoKey, keyedArchive(R"({"age": 37})"), "data");
  secrets.put(userInfoKey, R"({"data":7})", "json");
  EXPECT_EQ(partOf(update()[0].data, "/old_user_info"), R"({"age":37})");
}

TEST_F(MigrationTests, takesTheInstallRecordOfAPropertyListOverValueForValue) {
  launch();
  for (const auto* store : {&app, &secrets}) store->remove(installKey);
  app.put(legacyInstallKey, propertyList(R"({"Last-App-Version": "1.0", "Build": 7,
      "Install-Timestamp": 1500000000.5, "Installed-Before-Kite": true})"),
          "plist");
  EXPECT_THAT(types(launch()), ElementsAre("Session", "Session"));
  EXPECT_EQ(app.get(installKey), R"({"appVersion":"1.0","firstInstallTimestamp":1500000000.5,)"
                                 R"("installedBeforeKite":true})");
  EXPECT_EQ(secrets.get(installKey), std::nullopt);
}

TEST_F(MigrationTests, reportsAnUpdateFromTheVersionThatAPropertyListNames) {
  app.put(legacyInstallKey, propertyList(legacyInstall), "plist");
  const auto before = app.get(legacyInstallKey);
  const auto install = update()[1];
  expectParts(install.data, {{"/old_app_version", R"("0.8")"},
                             {"/old_bundle_version", ""},
                             {"/new_app_version", R"("1.0")"},
                             {"/installed_before_kite", "true"},
                             {"/keychain_id_status", R"("just_generated")"},
                             {"/userdefault_id_status", R"("just_generated")"}});
  EXPECT_EQ(partOf(install.userInfo, "/installed_before_kite"), "true");
  for (const auto* store : {&app, &secrets})
    EXPECT_EQ(store->get(installKey), R"({"appVersion":"1.0","bundleVersion":"",)"
                                      R"("firstInstallTimestamp":1500000000.5,)"
                                      R"("installedBeforeKite":true})");
  EXPECT_EQ(app.get(legacyInstallKey), before);
}

TEST_F(MigrationTests, takesTheInstallRecordOverAgainWhenTheCurrentOneCannotBeRead) {
  app.put(legacyInstallKey, propertyList(legacyInstall), "plist");
  app.put(installKey, R"({"appVersion":7})", "json");
  expectParts(update()[1].data, {{"/old_app_version", R"("0.8")"}});
}

TEST_F(MigrationTests, believesTheKeyedArchiveAmongTheSecretsBeforeThePropertyList) {
  const auto archive =
      keyedArchive(R"({"Last-App-Version": "0.9", "Install-Timestamp": 1400000000.25})");
  secrets.put(legacyInstallKey, archive, "data");
  app.put(legacyInstallKey, propertyList(legacyInstall), "plist");
  expectParts(update()[1].data, {{"/old_app_version", R"("0.9")"},
                                 {"/new_app_version", R"("1.0")"},
                                 {"/installed_before_kite", "true"}});
  expectParts(*app.get(installKey), {{"/firstInstallTimestamp", "1400000000.25"}});
  EXPECT_EQ(secrets.get(legacyInstallKey), archive);
}

TEST_F(MigrationTests, takesTheOldVersionFromLegacyUserInfoWhenNoRecordNamesOne) {
  secrets.put(legacyUserInfoKey, keyedArchive(R"({"app_version": "0.7"})"), "data");
  expectParts(update()[1].data, {{"/old_app_version", R"("0.7")"}, {"/old_bundle_version", ""}});
}

TEST_F(MigrationTests, leavesLegacyEntriesAloneBesideCurrentOnes) {
  launch();
  const auto record = app.get(installKey);
  app.put(legacyInstallKey, propertyList(legacyInstall), "plist");
  secrets.put(legacyInstallKey, keyedArchive(legacyInstall), "data");
  secrets.put(legacyUserInfoKey, keyedArchive(R"({"age": 37, "app_version": "0.9"})"), "data");
  const auto events = launch();
  ASSERT_THAT(types(events), ElementsAre("Session", "Session"));
  expectParts(events[1].userInfo, {{"/age", ""}, {"/app_version", R"("1.0")"}});
  for (const auto* store : {&app, &secrets}) EXPECT_EQ(store->get(installKey), record);
}

TEST_F(MigrationTests, findsEveryKindOfValueInAPropertyList) {
  app.put("list", propertyList(R"({
      "text": "地図", "count": -42, "beyond": 18446744073709551615, "ratio": 0.25, "yes": true,
      "date": {"$date": 1.5}, "bytes": {"$data": "00ff0a"}, "items": [1, "a", {"k": false}]})"),
          "plist");
  EXPECT_EQ(app.get("list"),
            "{\"beyond\":18446744073709551616.0,\"bytes\":\"00ff0a\",\"count\":-42,"
            "\"date\":978307201.5,\"items\":[1,\"a\",{\"k\":false}],\"ratio\":0.25,"
            "\"text\":\"\u5730\u56f3\",\"yes\":true}\n");
}

}  // namespace
}  // namespace kite::test
