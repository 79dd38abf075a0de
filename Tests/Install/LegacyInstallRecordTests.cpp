#include "Install/LegacyInstallRecord.h"

#include <gmock/gmock.h>

namespace kite::test {
namespace {

std::optional<double> timestampFrom(DynamicValue value) {
  return fromLegacyRecord({{"Install-Timestamp", std::move(value)}}).firstInstallTimestamp;
}
std::optional<bool> flagFrom(DynamicValue value) {
  return fromLegacyRecord({{"Installed-Before-Kite", std::move(value)}}).installedBeforeKite;
}
std::optional<std::string> versionFrom(DynamicValue value) {
  return fromLegacyRecord({{"Last-App-Version", std::move(value)}}).appVersion;
}

TEST(LegacyInstallRecordTests, threeKeysBecomeThreeFields) {
  EXPECT_EQ(fromLegacyRecord({{"Last-App-Version", "1.0"},
                              {"Install-Timestamp", 1000.5},
                              {"Installed-Before-Kite", true}}),
            (StoredInformations{.firstInstallTimestamp = 1000.5,
                                .installedBeforeKite = true,
                                .appVersion = "1.0",
                                .bundleVersion = std::nullopt}));
}

TEST(LegacyInstallRecordTests, thereIsNoBundleVersionInIt) {
  EXPECT_EQ(fromLegacyRecord({{"bundleVersion", "100"}, {"Last-Bundle-Version", "100"}}),
            StoredInformations{});
}

TEST(LegacyInstallRecordTests, anEmptyDictionaryMakesAnEmptyRecord) {
  EXPECT_EQ(fromLegacyRecord({}), StoredInformations{});
}

TEST(LegacyInstallRecordTests, onlyARealServesAsATimestamp) {
  EXPECT_EQ(timestampFrom(1000.0), std::optional(1000.0));
  EXPECT_EQ(timestampFrom(1000), std::nullopt);
  EXPECT_EQ(timestampFrom(std::uint64_t(-1)), std::nullopt);
  EXPECT_EQ(timestampFrom(true), std::nullopt);
  EXPECT_EQ(timestampFrom("1000"), std::nullopt);
  EXPECT_EQ(timestampFrom(DynamicValue::NullObject{}), std::nullopt);
  EXPECT_EQ(timestampFrom(Date{1000}), std::nullopt);
}

TEST(LegacyInstallRecordTests, onlyABooleanServesAsAFlag) {
  EXPECT_EQ(flagFrom(true), std::optional(true));
  EXPECT_EQ(flagFrom(false), std::optional(false));
  for (const DynamicValue& other : {DynamicValue(1), DynamicValue(0), DynamicValue(1.0),
                                    DynamicValue(0.0), DynamicValue("true")})
    EXPECT_EQ(flagFrom(other), std::nullopt);
}

TEST(LegacyInstallRecordTests, onlyTextServesAsAVersion) {
  EXPECT_EQ(versionFrom("1.0"), std::optional<std::string>("1.0"));
  EXPECT_EQ(versionFrom(1), std::nullopt);
  EXPECT_EQ(versionFrom(DynamicValue::NullObject{}), std::nullopt);
}

}  // namespace
}  // namespace kite::test
