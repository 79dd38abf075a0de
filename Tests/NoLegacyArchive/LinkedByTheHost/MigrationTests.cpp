#include <Kite/Kite.h>

#include "Support/KeyedArchive.h"
#include "Support/TestWorld.h"

#include <gtest/gtest.h>

// Linked with a library that was built without Kite::LegacyArchive, and with that behind it.
namespace kite::test {
namespace {

TEST(LinkedLegacyArchive, migratesForALibraryThatWasBuiltWithoutIt) {
  TestWorld world;
  KiteManagerImpl kite{world.system.system()};
  world.secrets->put("USUserInfo", keyedArchive({{"color", "<string>green</string>"}}));
  world.keyValues->writePropertyList("VLInstallManager",
                                     propertyList({{"Install-Timestamp", "<real>3.5</real>"}}));
  kite.start(world.dependencies());
  EXPECT_EQ(kite.userInfoKiteValue().at("color")->as<std::string>(), "green");
  EXPECT_EQ(kite.firstInstallTimestamp(), 3.5);
}

}  // namespace
}  // namespace kite::test
