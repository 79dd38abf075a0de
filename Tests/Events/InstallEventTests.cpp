#include "Support/FakeSystem.h"
#include "Support/ParsedJSON.h"
#include "Support/TrackedEvents.h"

#include <gmock/gmock.h>

namespace kite::test {
namespace {

using Usher::CreationType;

InstallPayload aPayload() {
  return {.id = FakeSystem::uuid(1),
          .timestamp = 12.5,
          .installedBeforeKite = true,
          .keychainStatus = CreationType::readFromFile,
          .userdefaultStatus = CreationType::justGenerated,
          .oldBundleVersion = std::nullopt,
          .oldAppVersion = std::nullopt,
          .newAppVersion = "2.0",
          .documentDirectoryCreationTimestamp = std::nullopt};
}

TrackedEvent anInstallEvent(InstallPayload payload, std::optional<Storefront> storefront = {}) {
  return tracked(InstallEvent{std::move(payload), std::move(storefront)},
                 {.info = {{"a", 1}}, .ids = {}});
}

TEST(InstallEventTests, tellsWhatItIsFromItsPayload) {
  const auto event = anInstallEvent(aPayload());
  EXPECT_EQ(event.type(), EventType(EventType::Case::install));
  EXPECT_EQ(event.id(), FakeSystem::uuid(1).text());
  EXPECT_EQ(event.timestamp(), 12.5);
  EXPECT_EQ(event.requestTimestamp(), std::nullopt);
  EXPECT_EQ(event.user()->info, (JSONValue::Object{{"a", 1}}));
}

TEST(InstallEventTests, withoutOldVersionsLeavesTheirKeysOutButKeepsTheDirectorysAsNull) {
  EXPECT_EQ(anInstallEvent(aPayload()).data(), parsedObject(R"({
    "installed_before_kite": true,
    "keychain_id_status": "read_from_file",
    "userdefault_id_status": "just_generated",
    "new_app_version": "2.0",
    "document_directory_creation_timestamp": null
  })"));
}

TEST(InstallEventTests, carriesTheOldVersionsAndTheDirectorysAgeWhenTheyAreKnown) {
  auto payload = aPayload();
  payload.oldAppVersion = "1.0";
  payload.oldBundleVersion = "100";
  payload.documentDirectoryCreationTimestamp = 7.25;
  const auto data = anInstallEvent(payload).data();
  EXPECT_EQ(*data.at("old_app_version"), JSONValue("1.0"));
  EXPECT_EQ(*data.at("old_bundle_version"), JSONValue("100"));
  EXPECT_EQ(*data.at("document_directory_creation_timestamp"), JSONValue(7.25));
  EXPECT_EQ(data.size(), 7U);
}

TEST(InstallEventTests, saysWhetherTheApplicationWasThereBefore) {
  auto payload = aPayload();
  EXPECT_EQ(*anInstallEvent(payload).data().at("installed_before_kite"), JSONValue(true));
  payload.installedBeforeKite = false;
  EXPECT_EQ(*anInstallEvent(payload).data().at("installed_before_kite"), JSONValue(false));
}

TEST(InstallEventTests, tellsTheTwoIdentifiersStatusesApart) {
  auto payload = aPayload();
  payload.keychainStatus = CreationType::notApplicable;
  payload.userdefaultStatus = CreationType::readFromFile;
  EXPECT_EQ(*anInstallEvent(payload).data().at("keychain_id_status"), JSONValue("not_applicable"));
  EXPECT_EQ(*anInstallEvent(payload).data().at("userdefault_id_status"),
            JSONValue("read_from_file"));
}

TEST(InstallEventTests, numbersTheIdentifierStatusesInTheirOrder) {
  EXPECT_EQ(static_cast<int>(CreationType::notApplicable), 0);
  EXPECT_EQ(static_cast<int>(CreationType::justGenerated), 1);
  EXPECT_EQ(static_cast<int>(CreationType::readFromFile), 2);
}

TEST(InstallEventTests, namesTheThreeIdentifierStatuses) {
  auto payload = aPayload();
  payload.keychainStatus = CreationType::notApplicable;
  EXPECT_EQ(*anInstallEvent(payload).data().at("keychain_id_status"), JSONValue("not_applicable"));
  payload.keychainStatus = CreationType::justGenerated;
  EXPECT_EQ(*anInstallEvent(payload).data().at("keychain_id_status"), JSONValue("just_generated"));
  payload.keychainStatus = CreationType::readFromFile;
  EXPECT_EQ(*anInstallEvent(payload).data().at("keychain_id_status"), JSONValue("read_from_file"));
}

TEST(InstallEventTests, withAStorefrontHasBothOfItsKeys) {
  const auto data =
      anInstallEvent(aPayload(), Storefront{.identifier = "143450", .countryCode = "ITA"}).data();
  EXPECT_EQ(*data.at("storefront_id"), JSONValue("143450"));
  EXPECT_EQ(*data.at("storefront_country_code"), JSONValue("ITA"));
  EXPECT_EQ(data.size(), 7U);
}

TEST(InstallEventTests, withoutAStorefrontHasNeitherOfItsKeys) {
  const auto data = anInstallEvent(aPayload()).data();
  EXPECT_FALSE(data.contains("storefront_id"));
  EXPECT_FALSE(data.contains("storefront_country_code"));
}

}  // namespace
}  // namespace kite::test
