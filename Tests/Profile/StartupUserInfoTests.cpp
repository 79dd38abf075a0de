#include "Profile/StartupUserInfo.h"

#include <gtest/gtest.h>

namespace kite {
namespace {

using Object = JSONValue::Object;
using Array = JSONValue::Array;

class StartupUserInfoTests : public testing::Test {
 protected:
  Locale locale{
      .identifier = "en_US", .regionCode = "US", .preferredLanguages = {"en-US", "mi-NZ"}};
  TimeZone timeZone{
      .identifier = "Pacific/Auckland",
      .secondsFromUTC = [](Date date) { return date.secondsSince1970 > 100 ? 46800 : 43200; },
      .isDaylightSavingTime = [](Date date) { return date.secondsSince1970 > 100; }};
  Device device{.systemVersion = "17.4.1",
                .model = "Phone",
                .machine =
                    [] {
                      return Device::MachineField{'P', '1', '5', ',', '2'};
                    },
                .identifierForVendor = [] { return std::nullopt; }};
  std::string appVersion = "12.4.1";
  std::string bundleVersion = "20311";
  std::optional<std::string> libraryVersion = "7.3.0";

  Object info(Date now = {200}) {
    return startupUserInfo({.locale = locale,
                            .appVersion = appVersion,
                            .bundleVersion = bundleVersion,
                            .timeZone = timeZone,
                            .device = device,
                            .libraryShortVersion = libraryVersion,
                            .now = now});
  }
};

TEST_F(StartupUserInfoTests, holdsEveryKeyInItsPlaceAndKind) {
  const Object expected{
      {"is_frozen_app", Null{}},
      {"country", "US"},
      {"app_language", "en"},
      {"locale", "en_US"},
      {"app_version", "12.4.1"},
      {"bundle_version", "20311"},
      {"timezone",
       Object{{"seconds", 46800}, {"name", "Pacific/Auckland"}, {"daylight_saving", true}}},
      {"device", Object{{"ios_version", "17.4.1"},
                        {"type", "Phone"},
                        {"platform", "P15,2"},
                        {"language", "en-US"},
                        {"all_languages", Array{"en-US", "mi-NZ"}}}},
      {"kite_lib_version", "7.3.0"}};
  EXPECT_EQ(info(), expected);
}

TEST_F(StartupUserInfoTests, aLocaleIdentifierEnUSGivesLanguageEn) {
  EXPECT_EQ(*info().at("app_language"), JSONValue("en"));
  EXPECT_EQ(*info().at("locale"), JSONValue("en_US"));
}

TEST_F(StartupUserInfoTests, aLocaleWithoutRegionRemovesTheCountry) {
  locale = {.identifier = "eo", .regionCode = std::nullopt, .preferredLanguages = {}};
  EXPECT_FALSE(info().contains("country"));
  EXPECT_EQ(*info().at("app_language"), JSONValue("eo"));
}

TEST_F(StartupUserInfoTests, emptyPiecesOfTheIdentifierAreNoLanguage) {
  locale.identifier = "_US";
  EXPECT_EQ(*info().at("app_language"), JSONValue("US"));
  locale.identifier = "_en_US";
  EXPECT_EQ(*info().at("app_language"), JSONValue("en"));
  locale.identifier = "__";
  EXPECT_FALSE(info().contains("app_language"));
  locale.identifier = "";
  EXPECT_FALSE(info().contains("app_language"));
}

TEST_F(StartupUserInfoTests, withoutPreferredLanguagesTheDeviceLanguageIsEmpty) {
  locale.preferredLanguages.clear();
  const Object infos = info();
  const Object& deviceInfo = *infos.at("device")->object();
  EXPECT_EQ(*deviceInfo.at("language"), JSONValue(""));
  EXPECT_EQ(*deviceInfo.at("all_languages"), JSONValue(Array{}));
}

TEST_F(StartupUserInfoTests, theTimeZoneIsAskedForTheCurrentInstant) {
  const Object infos = info({50});
  const Object& zone = *infos.at("timezone")->object();
  EXPECT_EQ(*zone.at("seconds"), JSONValue(43200));
  EXPECT_EQ(*zone.at("daylight_saving"), JSONValue(false));
}

TEST_F(StartupUserInfoTests, aPlatformWithoutLibraryVersionLeavesTheKeyOut) {
  libraryVersion = std::nullopt;
  EXPECT_FALSE(info().contains("kite_lib_version"));
}

}  // namespace
}  // namespace kite
