#include <Kite/Kite.h>

#include "Support/CatchFatalErrors.h"
#include "Support/KeyedArchive.h"
#include "Support/TestWorld.h"

#include <gmock/gmock.h>

#include <csignal>

// Linked with all of the library but Kite::LegacyArchive.
namespace kite::test {
namespace {

constexpr const char* advice =
    "This store was written by an earlier version: link Kite::LegacyArchive to migrate it";
constexpr const char* userInfoKey = "Kite-User-Info";
constexpr const char* legacyUserInfoKey = "USUserInfo";
constexpr const char* installKey = "Kite-Install-Manager";
constexpr const char* legacyInstallKey = "VLInstallManager";

class StartWithoutLegacyArchive : public testing::Test {
 protected:
  void start() { kite.start(world.dependencies()); }

  TestWorld world;
  KiteManagerImpl kite{world.system.system()};
  const std::string archive = keyedArchive({{"app_version", "<string>0.9</string>"}});
  const Data list = propertyList({{"Last-App-Version", "<string>0.9</string>"}});
};

TEST_F(StartWithoutLegacyArchive, aFreshStoreStarts) {
  start();
  EXPECT_EQ(kite.userInfoKiteValue().at("app_version")->as<std::string>(), "1.0");
  EXPECT_TRUE(world.keyValues->contains(installKey));
  EXPECT_TRUE(world.secrets->contains(installKey));
}

TEST_F(StartWithoutLegacyArchive, aUserInfoThatWasNotMigratedStopsTheProcessAndStays) {
  world.secrets->put(legacyUserInfoKey, archive);
  EXPECT_FATAL(start(), advice);
  EXPECT_FALSE(world.secrets->contains(userInfoKey));
  EXPECT_EQ(world.secrets->text(legacyUserInfoKey), archive);
}

TEST_F(StartWithoutLegacyArchive, anInstallRecordThatWasNotMigratedStopsTheProcessAndStays) {
  world.secrets->put(legacyInstallKey, archive);
  EXPECT_FATAL(start(), advice);
  EXPECT_FALSE(world.secrets->contains(installKey));
}

TEST_F(StartWithoutLegacyArchive, aNativeDictionaryThatWasNotMigratedStopsTheProcessAndStays) {
  world.keyValues->writePropertyList(legacyInstallKey, list);
  EXPECT_FATAL(start(), advice);
  EXPECT_FALSE(world.keyValues->contains(installKey));
  EXPECT_EQ(world.keyValues->readPropertyList(legacyInstallKey), list);
}

TEST_F(StartWithoutLegacyArchive, aStoreThatWasMigratedStarts) {
  world.secrets->put(legacyUserInfoKey, archive);
  world.secrets->put(userInfoKey, R"({"data":{"color":"green"}})");
  world.secrets->put(legacyInstallKey, archive);
  world.secrets->put(installKey, R"({"appVersion":"0.9"})");
  world.keyValues->writePropertyList(legacyInstallKey, list);
  world.keyValues->put(installKey, "{}");
  start();
  EXPECT_EQ(kite.userInfoKiteValue().at("color")->as<std::string>(), "green");
}

TEST_F(StartWithoutLegacyArchive, theProcessStopsWithOneLine) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  world.secrets->put(legacyUserInfoKey, archive);
  EXPECT_EXIT(
      start(), testing::KilledBySignal(SIGABRT),
      "^Fatal error: " + std::string(advice) + ": file Kite/LegacyArchive, line 0\nin start\n$");
}

}  // namespace
}  // namespace kite::test
