#include "Linux/Machine/DeviceDefaults.h"

#include "Linux/Machine/FakeEnvironment.h"
#include "Linux/Machine/FileManagerDefaults.h"
#include "Linux/Machine/Folders.h"
#include "Support/TemporaryFolder.h"

#include <sys/utsname.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <string>

namespace {
bool unameFails = false;
}

// The linker sends every call of `uname` here.
int realUname(utsname* system) asm("__real_uname");
int failingUname(utsname* system) asm("__wrap_uname");
int failingUname(utsname* system) { return unameFails ? -1 : realUname(system); }

namespace kite::Linux {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class DeviceDefaultsTests : public testing::Test {
 protected:
  void write(const std::filesystem::path& file, const std::string& text) {
    std::ofstream(file) << text;
  }

  test::TemporaryFolder folder;
  DeviceFiles files{.release = folder.path() / "release",
                    .vendorRelease = folder.path() / "vendor",
                    .product = folder.path() / "product"};
};

TEST_F(DeviceDefaultsTests, takesTheVersionOfTheSystem) {
  write(files.release, "NAME=X\nVERSION_ID=\"12\"\nPRETTY_NAME=\"X 12\"\n");
  EXPECT_EQ(device(files)->systemVersion, "12");
}

TEST_F(DeviceDefaultsTests, takesTheNameOfASystemWithoutVersion) {
  write(files.release, "VERSION_ID=\nPRETTY_NAME='X unstable'");
  EXPECT_EQ(device(files)->systemVersion, "X unstable");
}

TEST_F(DeviceDefaultsTests, takesTheVendorsFileWhenThereIsNoOther) {
  write(files.vendorRelease, "VERSION_ID=7\n");
  EXPECT_EQ(device(files)->systemVersion, "7");
  write(files.release, "VERSION_ID=8\n");
  EXPECT_EQ(device(files)->systemVersion, "8");
}

TEST_F(DeviceDefaultsTests, takesTheReleaseOfTheKernelWhenNothingElseIsKnown) {
  utsname system{};
  ASSERT_EQ(::uname(&system), 0);
  EXPECT_EQ(device(files)->systemVersion, system.release);
}

TEST_F(DeviceDefaultsTests, knowsNeitherKernelNorMachineWhenTheSystemDoesNotTell) {
  unameFails = true;
  const auto silent = device(files);
  EXPECT_EQ(silent->systemVersion, "");
  EXPECT_EQ(silent->machine(), Device::MachineField{});
  unameFails = false;
  EXPECT_NE(silent->machine(), Device::MachineField{});
}

TEST_F(DeviceDefaultsTests, takesTheNameOfTheProduct) {
  write(files.product, "Model 5\n");
  EXPECT_EQ(device(files)->model, "Model 5");
  write(files.product, " \n");
  EXPECT_EQ(device(files)->model, "Linux");
}

TEST_F(DeviceDefaultsTests, fillsTheMachineFieldWithZeros) {
  utsname system{};
  ASSERT_EQ(::uname(&system), 0);
  const std::string machine(system.machine);
  const auto field = device(files)->machine();
  EXPECT_EQ(field.size(), 256u);
  EXPECT_EQ(std::string(field.data()), machine);
  EXPECT_TRUE(std::all_of(field.begin() + static_cast<std::ptrdiff_t>(machine.size()), field.end(),
                          [](char byte) { return byte == 0; }));
}

TEST_F(DeviceDefaultsTests, hasNoIdentifierForVendors) {
  EXPECT_EQ(device(files)->identifierForVendor(), std::nullopt);
}

TEST(FileManagerDefaults, knowsTheDocumentFolderOnly) {
  const auto manager = fileManager("/data/app");
  EXPECT_THAT(manager.urlsForDirectory(FileManager::documentDirectory, FileManager::userDomainMask),
              ElementsAre("/data/app"));
  EXPECT_THAT(manager.urlsForDirectory(5, FileManager::userDomainMask), IsEmpty());
  EXPECT_THAT(manager.urlsForDirectory(FileManager::documentDirectory, 2), IsEmpty());
}

TEST(FileManagerDefaults, knowsWhenAFolderWasMade) {
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

TEST(FileManagerDefaults, knowsNothingOfWhatIsNotThere) {
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
