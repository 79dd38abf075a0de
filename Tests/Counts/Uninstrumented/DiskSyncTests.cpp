#include <Kite/Linux/LinuxPlatform.h>

#include "Counts/Uninstrumented/TracedCalls.h"
#include "Support/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <sys/syscall.h>

#include <algorithm>
#include <memory>

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

TEST(DiskSyncTests, aValueOfTheApplicationsDoesNotWaitForTheDisk) {
  const TemporaryFolder folder;
  EXPECT_EQ(waitsOfAWrite([&] { return Linux::sqliteKVStorage(folder.path(), System::live()); }),
            0);
}

}  // namespace
}  // namespace kite::test
