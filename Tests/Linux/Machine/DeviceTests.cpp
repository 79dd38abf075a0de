#include "Linux/Machine/Machine.h"

#include "Support/TemporaryFolder.h"

#include <sys/utsname.h>

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

}  // namespace
}  // namespace kite::Linux
