#include "Install/InstallManager.h"

#include "Support/ParsedJSON.h"

#include <gmock/gmock.h>

namespace kite::test {
namespace {

using Coding = JSONCoding<StoredInformations>;

const StoredInformations everything{.firstInstallTimestamp = 1000.5,
                                    .installedBeforeKite = true,
                                    .appVersion = "1.0",
                                    .bundleVersion = "100"};

TEST(StoredInformationsTests, areStoredUnderTheNamesOfTheirFields) {
  EXPECT_EQ(Coding::encode(everything),
            parsed(R"({"firstInstallTimestamp": 1000.5, "installedBeforeKite": true,
                       "appVersion": "1.0", "bundleVersion": "100"})"));
}

TEST(StoredInformationsTests, absentFieldsAreLeftOut) {
  EXPECT_EQ(Coding::encode({}), parsed("{}"));
}

TEST(StoredInformationsTests, areReadBackAsTheyWere) {
  EXPECT_EQ(Coding::decode(Coding::encode(everything)), std::optional(everything));
  EXPECT_EQ(Coding::decode(parsed("{}")), std::optional(StoredInformations{}));
}

TEST(StoredInformationsTests, nullFieldsAreAbsent) {
  EXPECT_EQ(Coding::decode(parsed(R"({"appVersion": null, "firstInstallTimestamp": null})")),
            std::optional(StoredInformations{}));
}

TEST(StoredInformationsTests, aFieldOfTheWrongTypeVoidsTheRecord) {
  EXPECT_EQ(Coding::decode(parsed(R"({"appVersion": 1})")), std::nullopt);
  EXPECT_EQ(Coding::decode(parsed(R"({"bundleVersion": 100})")), std::nullopt);
  EXPECT_EQ(Coding::decode(parsed(R"({"firstInstallTimestamp": "1000"})")), std::nullopt);
  EXPECT_EQ(Coding::decode(parsed(R"({"installedBeforeKite": 1})")), std::nullopt);
  EXPECT_EQ(Coding::decode(parsed("[]")), std::nullopt);
}

}  // namespace
}  // namespace kite::test
