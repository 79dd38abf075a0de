#include <Kite/Linux/LinuxPlatform.h>

#include "Counts/Uninstrumented/TracedCalls.h"
#include "Linux/Storage/MasterKeyFile.h"
#include "Support/Rows.h"
#include "Support/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <sys/syscall.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <vector>

namespace kite::test {
namespace {

bool waitsForTheDisk(const SystemCall& call) {
  return call.number == SYS_fdatasync || call.number == SYS_fsync;
}

/// How often `body`, in this thread, waits for the disk.
template <class Body>
auto waits(Body body) {
  return std::ranges::count_if(systemCalls(body), waitsForTheDisk);
}

template <class Open>
auto waitsOfAWrite(Open open) {
  return waits([&](const Watch& watch) {
    const auto storage = open();
    storage->write("k", {"first"});
    watch([&] { storage->write("k", {"second"}); });
  });
}

auto waitsOfAnEdit(Larder::Durability durability) {
  const TemporaryFolder folder;
  return waits([&](const Watch& watch) {
    const auto storage = Linux::keyValueStorage(folder.path(), System::live());
    const auto edit = [&](bool replacesAll, std::uint64_t ordinal) {
      storage->edit("l",
                    {.replacesAll = replacesAll, .removed = {}, .appended = {row(ordinal, "1")}},
                    durability);
    };
    edit(true, 1);
    watch([&] { edit(false, 2); });
  });
}

TEST(DiskSyncTests, aSecretDoesNotWaitForTheDisk) {
  const TemporaryFolder folder;
  EXPECT_EQ(
      waitsOfAWrite([&] { return Linux::sealedSecretsStorage(folder.path(), System::live()); }), 0);
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

TEST(DiskSyncTests, aFirstStartOfTheApplicationsStoreDoesNotWaitForTheDisk) {
  const TemporaryFolder folder;
  EXPECT_EQ(waits([&](const Watch& watch) {
              watch([&] { Linux::keyValueStorage(folder.path(), System::live())->write("k", {}); });
            }),
            0);
}

TEST(DiskSyncTests, anEditWaitsForTheDiskOnceWhenItIsToSurviveAPowerCut) {
  EXPECT_EQ(waitsOfAnEdit(Larder::Durability::survivesPowerCut), 1);
  EXPECT_EQ(waitsOfAnEdit(Larder::Durability::survivesKill), 0);
}

}  // namespace
}  // namespace kite::test
