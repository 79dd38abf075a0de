#include <Kite/Linux/LinuxPlatform.h>

#include "Counts/Uninstrumented/TracedCalls.h"
#include "Linux/Storage/MasterKeyFile.h"
#include "Support/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <sys/syscall.h>

#include <algorithm>
#include <memory>
#include <vector>

namespace kite::test {
namespace {

bool waitsForTheDisk(const SystemCall& call) {
  return call.number == SYS_fdatasync || call.number == SYS_fsync;
}

/// How often a write to the store that `open` gives waits for the disk, once it has a log.
template <class Open>
auto waitsOfAWrite(Open open) {
  return std::ranges::count_if(systemCalls([&](const Watch& watch) {
                                 const auto storage = open();
                                 storage->write("k", {"first"});
                                 watch([&] { storage->write("k", {"second"}); });
                               }),
                               waitsForTheDisk);
}

TEST(DiskSyncTests, aSecretIsOnTheDiskWhenItsWriteReturns) {
  const TemporaryFolder folder;
  EXPECT_GE(
      waitsOfAWrite([&] { return Linux::sealedSecretsStorage(folder.path(), System::live()); }), 1);
}

// Or a power failure could leave secrets behind that no key opens.
TEST(DiskSyncTests, aNewKeyIsOnTheDiskBeforeItHasItsNameAndSoIsItsName) {
  const TemporaryFolder folder;
  std::vector<long> calls;
  for (const auto& call : systemCalls([&](const Watch& watch) {
         const auto open = Linux::PrivateFolder::open(folder.path(), /*make=*/true);
         watch([&] { Linux::readOrMakeMasterKey(*open, System::live()); });
       }))
    if (waitsForTheDisk(call) || call.number == SYS_renameat) calls.push_back(call.number);
  EXPECT_EQ(calls, (std::vector<long>{SYS_fsync, SYS_renameat, SYS_fsync}));
}

TEST(DiskSyncTests, aValueOfTheApplicationsDoesNotWaitForTheDisk) {
  const TemporaryFolder folder;
  EXPECT_EQ(waitsOfAWrite([&] { return Linux::keyValueStorage(folder.path(), System::live()); }),
            0);
}

}  // namespace
}  // namespace kite::test
