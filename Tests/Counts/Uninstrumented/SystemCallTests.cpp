#include "Counts/Uninstrumented/TracedCalls.h"
#include "Fixture/ReferenceEvent.h"
#include "Fixture/StartedHost.h"
#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <sched.h>

#include <filesystem>
#include <fstream>
#include <semaphore>
#include <string>
#include <vector>

namespace kite::test {
namespace {

using testing::Each;
using testing::IsEmpty;
using testing::SizeIs;
using testing::Truly;

/// Whether this process' thread of that name sleeps.
bool isAsleep(const std::string& name) {
  for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
    std::ifstream stat(thread.path() / "stat");
    std::string text;
    std::getline(stat, text);
    if (text.find('(' + name + ") S") != std::string::npos) return true;
  }
  return false;
}

TEST(SystemCallTests, aTrackingCallMakesNoneWhileTheStorageIsBusy) {
  const TemporaryFolder folder;
  EXPECT_THAT(systemCalls([&](const Watch& watch) {
                bench::HandDrivenHost host({.folder = folder.path()});
                host->track(10);
                std::binary_semaphore isBusy(0);
                std::binary_semaphore mayGoOn(0);
                host->storageQueue().run([&] {
                  isBusy.release();
                  mayGoOn.acquire();
                });
                isBusy.acquire();
                host->track(10);
                watch([&] { host->track(1000); });
                mayGoOn.release();
                host->settleStorage();
              }),
              IsEmpty());
}

/// What `call(host)` makes whenever nothing else is going on.
template <class Call>
std::vector<SystemCall> callsWhileTheStorageSleeps(int count, Call call) {
  const TemporaryFolder folder;
  return systemCalls([&](const Watch& watch) {
    bench::HandDrivenHost host({.folder = folder.path()});
    for (int i = 0; i < count; ++i) {
      call(*host);
      host->settleStorage();
    }
    for (int i = 0; i < count; ++i) {
      while (!isAsleep("kite.storage")) ::sched_yield();
      watch([&] { call(*host); });
    }
    host->settleStorage();
  });
}

TEST(SystemCallTests, aTrackingCallInTheForegroundMakesNoneWhileTheStorageSleeps) {
  EXPECT_THAT(callsWhileTheStorageSleeps(100, [](auto& host) { host.track(1); }), IsEmpty());
}

TEST(SystemCallTests, aTrackingCallThatMayBeInTheBackgroundMakesOneThatWakesASleepingWorker) {
  constexpr int count = 20;
  const auto calls = callsWhileTheStorageSleeps(
      count, [](auto& host) { host.kite().trackLog("name", Severity::notice, {}); });
  EXPECT_THAT(calls, SizeIs(count));
  EXPECT_THAT(calls, Each(Truly([](const auto& call) { return call.wakesASleeper(); })));
}

}  // namespace
}  // namespace kite::test
