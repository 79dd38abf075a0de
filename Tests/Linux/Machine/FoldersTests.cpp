#include "Linux/Machine/FakeEnvironment.h"
#include "Linux/Machine/Machine.h"
#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>

namespace kite::Linux {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(FileManagerTests, knowsTheDocumentFolderOnly) {
  const auto manager = fileManager("/data/app");
  EXPECT_THAT(manager.urlsForDirectory(FileManager::documentDirectory, FileManager::userDomainMask),
              ElementsAre("/data/app"));
  EXPECT_THAT(manager.urlsForDirectory(5, FileManager::userDomainMask), IsEmpty());
  EXPECT_THAT(manager.urlsForDirectory(FileManager::documentDirectory, 2), IsEmpty());
}

TEST(FileManagerTests, knowsWhenAFolderWasMade) {
  const test::TemporaryFolder older, newer;
  const auto manager = fileManager(older.path());
  const auto first = manager.attributesOfItem(older.path());
  const auto second = manager.attributesOfItem(newer.path());
  ASSERT_TRUE(first && second);
  ASSERT_EQ(first->creationDate.has_value(), second->creationDate.has_value());
  if (first->creationDate) {
    EXPECT_LE(first->creationDate->secondsSince1970, second->creationDate->secondsSince1970);
    EXPECT_GT(first->creationDate->secondsSince1970, 1.7e9);
  }
}

TEST(FileManagerTests, knowsNothingOfWhatIsNotThere) {
  EXPECT_FALSE(fileManager("/data").attributesOfItem("/no/such/folder"));
}

TEST(FoldersTests, areTheXDGBaseDirectories) {
  const auto folders = foldersFor({.applicationName = "app"}, environment({{"HOME", "/home/u"}}));
  EXPECT_EQ(folders.data, "/home/u/.local/share/app");
  EXPECT_EQ(folders.secrets, "/home/u/.local/share/kite-secrets/app");
  EXPECT_EQ(folders.notBackedUp, "/home/u/.local/state/app");
}

TEST(FoldersTests, followTheVariablesThatNameAbsolutePaths) {
  const auto folders = foldersFor(
      {.applicationName = "app"},
      environment({{"HOME", "/home/u"}, {"XDG_DATA_HOME", "/d"}, {"XDG_STATE_HOME", "relative"}}));
  EXPECT_EQ(folders.data, "/d/app");
  EXPECT_EQ(folders.secrets, "/d/kite-secrets/app");
  EXPECT_EQ(folders.notBackedUp, "/home/u/.local/state/app");
}

TEST(FoldersTests, areTheHostsWhenItNamesThem) {
  const auto folders = foldersFor(
      {.applicationName = "app", .dataFolder = "/state/app", .secretsFolder = "/state/secrets"},
      environment({{"HOME", "/home/u"}}));
  EXPECT_EQ(folders.data, "/state/app");
  EXPECT_EQ(folders.secrets, "/state/secrets");
  EXPECT_EQ(folders.notBackedUp, std::nullopt);
}

TEST(FoldersTests, neverLeaveTheirPlace) {
  const auto dataOf = [](const char* name) {
    return foldersFor({.applicationName = name}, environment({{"HOME", "/home/u"}})).data;
  };
  EXPECT_EQ(dataOf(""), "/home/u/.local/share/kite-application");
  EXPECT_EQ(dataOf(".."), "/home/u/.local/share/kite-application");
  EXPECT_EQ(dataOf("../../etc"), "/home/u/.local/share/etc");
}

}  // namespace
}  // namespace kite::Linux
