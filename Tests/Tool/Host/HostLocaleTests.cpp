#include "Host/HostLocale.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

namespace kite::tool {
namespace {

using testing::ElementsAre;

const Locale system{.identifier = "de_AT", .regionCode = "AT", .preferredLanguages = {"de-AT"}};

TEST(RegionCode, isTheLastPartOfAnIdentifier) {
  EXPECT_EQ(regionCode("en_NZ"), "NZ");
  EXPECT_EQ(regionCode("zh_Hant_TW"), "TW");
  EXPECT_EQ(regionCode("zh-Hans_CN"), "CN");
  EXPECT_EQ(regionCode("es_419"), "419");
  EXPECT_EQ(regionCode("en_GB@calendar=gregorian"), "GB");
}

TEST(RegionCode, isAbsentWhenTheLastPartIsSomethingElse) {
  for (const auto* identifier : {"", "en", "zh_Hans", "en_", "NZ", "en_nz", "ca_ES_VALENCIA"})
    EXPECT_EQ(regionCode(identifier), std::nullopt) << identifier;
}

TEST(HostTimeZone, isOneOfTheDatabase) {
  for (const auto* name : {"Europe/Berlin", "UTC", "Pacific/Auckland"})
    EXPECT_TRUE(isTimeZone(name)) << name;
  for (const auto* name : {"", "Europe", "zone.tab", "CET-1CEST", "Mars/Olympus_Mons",
                           "../zoneinfo/UTC", "/usr/share/zoneinfo/UTC"})
    EXPECT_FALSE(isTimeZone(name)) << name;
}

TEST(HostTimeZone, isLookedUpWhereTheEnvironmentSays) {
  ::setenv("TZDIR", "/nowhere", 1);
  EXPECT_FALSE(isTimeZone("UTC"));
  ::unsetenv("TZDIR");
}

TEST(HostLocale, isTheSystemsWithoutOptions) {
  const auto locale = hostLocale({}, system);
  EXPECT_EQ(locale.identifier, "de_AT");
  EXPECT_EQ(locale.regionCode, "AT");
  EXPECT_THAT(locale.preferredLanguages, ElementsAre("de-AT"));
}

TEST(HostLocale, takesIdentifierAndRegionFromTheOptions) {
  HostOptions options;
  options.locale = "en";
  const auto locale = hostLocale(options, system);
  EXPECT_EQ(locale.identifier, "en");
  EXPECT_EQ(locale.regionCode, std::nullopt);
  EXPECT_THAT(locale.preferredLanguages, ElementsAre("de-AT"));
}

TEST(HostLocale, takesLanguagesFromTheOptions) {
  HostOptions options;
  options.preferredLanguages = {"en-NZ", "mi-NZ"};
  const auto locale = hostLocale(options, system);
  EXPECT_EQ(locale.identifier, "de_AT");
  EXPECT_THAT(locale.preferredLanguages, ElementsAre("en-NZ", "mi-NZ"));
}

}  // namespace
}  // namespace kite::tool
