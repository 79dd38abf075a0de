#include "Profile/PlatformForKite.h"

#include "Support/CatchFatalErrors.h"

#include <algorithm>
#include <string_view>

namespace kite::test {
namespace {

Device deviceWith(std::string_view bytes) {
  Device::MachineField field{};
  std::ranges::copy(bytes, field.begin());
  return {.systemVersion = "12",
          .model = "Phone",
          .machine = [field] { return field; },
          .identifierForVendor = [] { return std::nullopt; }};
}

TEST(PlatformForKiteTests, isTheTextOfTheMachineField) {
  EXPECT_EQ(platformForKite(deviceWith("ABC1,2")), "ABC1,2");
}

TEST(PlatformForKiteTests, zeroBytesBetweenOthersAreSkipped) {
  EXPECT_EQ(platformForKite(deviceWith({"\0AB\0\0C\0", 7})), "ABC");
}

TEST(PlatformForKiteTests, aZeroFilledFieldIsEmpty) {
  EXPECT_EQ(platformForKite(deviceWith("")), "");
}

TEST(PlatformForKiteTests, allBytesOfTheFieldAreRead) {
  EXPECT_EQ(platformForKite(deviceWith(std::string(255, '\0') + "Z")), "Z");
  EXPECT_EQ(platformForKite(deviceWith(std::string(256, 'a'))), std::string(256, 'a'));
}

TEST(PlatformForKiteTests, theLargestASCIIByteIsKept) {
  EXPECT_EQ(platformForKite(deviceWith("\x7F")), "\x7F");
}

TEST(PlatformForKiteTests, aByteWithTheHighBitSetStopsTheProcess) {
  EXPECT_TRUE(fatalErrorOf([] { static_cast<void>(platformForKite(deviceWith("AB\x80"))); }));
}

}  // namespace
}  // namespace kite::test
