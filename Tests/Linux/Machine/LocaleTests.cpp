#include "Linux/Machine/Machine.h"

#include "Linux/Machine/FakeEnvironment.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kite::Linux {
namespace {

using testing::ElementsAre;

TEST(LocaleDefaults, readsLanguageAndRegion) {
  const auto locale = localeFrom(environment({{"LANG", "de_DE.UTF-8@euro"}}));
  EXPECT_EQ(locale.identifier, "de_DE");
  EXPECT_EQ(locale.regionCode, "DE");
  EXPECT_THAT(locale.preferredLanguages, ElementsAre("de-DE"));
}

TEST(LocaleDefaults, readsALanguageWithoutRegion) {
  const auto locale = localeFrom(environment({{"LANG", "eo"}}));
  EXPECT_EQ(locale.identifier, "eo");
  EXPECT_EQ(locale.regionCode, std::nullopt);
  EXPECT_THAT(locale.preferredLanguages, ElementsAre("eo"));
}

TEST(LocaleDefaults, takesTheFirstVariableThatIsSet) {
  EXPECT_EQ(localeFrom(environment({{"LC_ALL", "a_"}, {"LANG", "fr_FR"}})).identifier, "en");
  EXPECT_EQ(
      localeFrom(environment({{"LC_ALL", "it_IT"}, {"LC_MESSAGES", "es_ES"}, {"LANG", "fr_FR"}}))
          .identifier,
      "it_IT");
  EXPECT_EQ(localeFrom(environment({{"LC_MESSAGES", "es_ES"}, {"LANG", "fr_FR"}})).identifier,
            "es_ES");
}

TEST(LocaleDefaults, prefersTheLanguagesOfTheList) {
  const auto locale =
      localeFrom(environment({{"LANG", "de_AT.UTF-8"}, {"LANGUAGE", "de_AT:de::en_GB:!"}}));
  EXPECT_EQ(locale.identifier, "de_AT");
  EXPECT_THAT(locale.preferredLanguages, ElementsAre("de-AT", "de", "en-GB"));
}

TEST(LocaleDefaults, isEnglishWhenNothingIsNamed) {
  for (const auto* name : {"C", "POSIX", "C.UTF-8", "/usr", "de_", "d\xC3\xA9_FR", "123"}) {
    const auto locale = localeFrom(environment({{"LANG", name}}));
    EXPECT_EQ(locale.identifier, "en") << name;
    EXPECT_EQ(locale.regionCode, std::nullopt) << name;
    EXPECT_THAT(locale.preferredLanguages, ElementsAre("en")) << name;
  }
  EXPECT_EQ(localeFrom(environment({})).identifier, "en");
}

TEST(LocaleDefaults, readsRegionsMadeOfDigits) {
  EXPECT_EQ(localeFrom(environment({{"LANG", "es_419"}})).regionCode, "419");
}

TEST(LocaleDefaults, readsRegionsOfTwoOrThreeCharactersOnly) {
  for (const auto* region : {"U", "USAA"})
    EXPECT_EQ(localeFrom(environment({{"LANG", std::string("en_") + region}})).regionCode,
              std::nullopt)
        << region;
  EXPECT_EQ(localeFrom(environment({{"LANG", "en_USA"}})).regionCode, "USA");
}

}  // namespace
}  // namespace kite::Linux
