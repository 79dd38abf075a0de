#include "Events/TechnicalEvents.h"

#include <gmock/gmock.h>

namespace kite::test {
namespace {

TEST(TechnicalEventsTests, areTwoInTheirOrder) {
  EXPECT_THAT(allTechnicalEvents, testing::ElementsAre(TechnicalEvents::privacySettingsUpdated,
                                                       TechnicalEvents::asaAttribution));
}

TEST(TechnicalEventsTests, haveTheirTexts) {
  EXPECT_EQ(rawValue(TechnicalEvents::privacySettingsUpdated), "privacy_settings_updated");
  EXPECT_EQ(rawValue(TechnicalEvents::asaAttribution), "asa_attribution");
}

TEST(TechnicalEventsTests, areReadFromTheirTexts) {
  for (const auto event : allTechnicalEvents)
    EXPECT_EQ(technicalEvent(rawValue(event)), std::optional(event));
}

TEST(TechnicalEventsTests, areNotReadFromCapitalsOrAnythingElse) {
  EXPECT_EQ(technicalEvent("PRIVACY_SETTINGS_UPDATED"), std::nullopt);
  EXPECT_EQ(technicalEvent("ASA_ATTRIBUTION"), std::nullopt);
  EXPECT_EQ(technicalEvent("asa_attribution "), std::nullopt);
  EXPECT_EQ(technicalEvent(""), std::nullopt);
}

}  // namespace
}  // namespace kite::test
