#include "Counts/Anywhere/CountedAllocations.h"
#include "Fixture/ReferenceEvent.h"
#include "Fixture/StartedHost.h"
#include "Fixture/StartedStorage.h"
#include "Support/Queues.h"
#include "Support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>
#include <vector>

namespace kite::test {
namespace {

constexpr std::size_t callCount = 1000;

/// Made by the tracking calls themselves, not by the host that builds their properties. Now and
/// then the queue grows; that is less than one in a call.
std::uint64_t allocationsOfOneCall(KiteManager& kite) {
  std::vector<KiteData> properties(callCount, bench::actionProperties());
  kite.trackUserAction(bench::actionName, bench::actionProperties());
  const auto before = allocationsOfThisThread();
  for (auto& each : properties) kite.trackUserAction(bench::actionName, std::move(each));
  return (allocationsOfThisThread() - before) / callCount;
}

TEST(AllocationCountTests, aTrackingCallAllocatesAtMostThreeTimes) {
  const TemporaryFolder folder;
  bench::HandDrivenHost host({.folder = folder.path()});
  EXPECT_LE(allocationsOfOneCall(host->kite()), 3U);
}

TEST(AllocationCountTests, aTrackingCallCopiesNothingOfAProfileOrASessionHoweverLarge) {
  const TemporaryFolder folder;
  bench::HandDrivenHost host({.folder = folder.path()});
  const auto ofSmallOnes = allocationsOfOneCall(host->kite());
  KiteData fields;
  for (int i = 0; i < 500; ++i) fields.set("field" + std::to_string(i), i);
  host->kite().updateUserInfo(fields);
  host->kite().updateSessionData(fields);
  EXPECT_EQ(allocationsOfOneCall(host->kite()), ofSmallOnes);
}

TEST(AllocationCountTests, aRemovalThatIsMadeHoldsNoMemory) {
  const TemporaryFolder folder;
  bench::StartedStorage storage(folder.path(), false, std::make_shared<ImmediateQueue>());
  const auto removeABatch = [&storage] {
    std::set<std::string> ids;
    for (int i = 0; i < 500; ++i) ids.insert("an identifier of some length, " + std::to_string(i));
    storage.accept(std::move(ids));
  };
  const auto held = [] { return allocationsOfThisThread() - releasesOfThisThread(); };
  removeABatch();
  const auto before = held();
  for (int i = 0; i < 10; ++i) removeABatch();
  EXPECT_EQ(held(), before);
}

}  // namespace
}  // namespace kite::test
