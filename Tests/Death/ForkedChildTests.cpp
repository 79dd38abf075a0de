#include <Kite/Drain.h>
#include <Kite/Kite.h>
#include <Kite/Linux/LinuxPlatform.h>
#include <Kite/Status.h>

#include "Support/TestWorld.h"
#include "Support/WatchedSecretsStorage.h"

#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>
#include <semaphore>
#include <string>
#include <thread>

namespace {
bool isForkedChild = false;
}

// A child has the stack of the thread that forked alone: what the stacks of the others held would
// count as leaked. The leak sanitizer asks this when the process ends.
extern "C" int __lsan_is_turned_off();
extern "C" int __lsan_is_turned_off() { return isForkedChild ? 1 : 0; }

namespace kite {
namespace {

using test::TestWorld;

/// Runs `body() -> exit code` in a forked child, and gives what became of it.
int statusOfChild(const std::function<int()>& body) {
  const auto child = ::fork();
  if (child == 0) {
    isForkedChild = true;
    ::alarm(20);  // ends a child that hangs
    ::_exit(body());
  }
  int status = -1;
  ::waitpid(child, &status, 0);
  return status;
}

/// A facade of which another thread is in the middle of an operation, with locks in its hands.
class ForkedChildTests : public testing::Test {
 protected:
  ForkedChildTests() {
    auto bundle = world.dependencies();
    bundle.secretsStorage = std::make_shared<test::WatchedSecretsStorage>(
        world.secrets, [this](const std::string&) { pauseOnce(); });
    world.storageQueue = Linux::workerQueue("kite.storage");
    bundle.eventStorageQueue = world.storageQueue;
    auto system = world.system.system();
    system.forkCount = System::live().forkCount;
    kite = std::make_unique<KiteManagerImpl>(system);
    kite->start(std::move(bundle));
    isToPause = true;
    other = std::thread([this] { kite->addUserInfo("k", 1); });
    isPaused.acquire();
  }
  ~ForkedChildTests() override {
    mayGoOn.release();
    other.join();
  }

  void pauseOnce() {
    if (!isToPause.exchange(false)) return;
    isPaused.release();
    mayGoOn.acquire();
  }

  void callEveryOperation() const {
    kite->addSessionData("k", 1);
    kite->updateSessionData({{"k", 1}});
    kite->addUserInfo("k", 1);
    kite->updateUserInfo({{"k", 1}});
    kite->trackUserAction("action", {{"k", 1}});
    kite->trackCustomEvent("table", {{"k", 1}});
    kite->trackLog("log", Severity::error, {{"k", 1}});
    kite->trackDebugEvent({.severity = Severity::error, .message = "m", .category = "c"});
    kite->trackExperimentSegmentsReceived({{"segment", 1}});
    kite->monetizationFieldsDidChange({{"k", 1}});
    kite->isBaselineUserDidChange(true);
    kite->isFreeUserDidChange(true);
    kite->setAnalyticsTrackingConsent(false);
    kite->setProfilingTrackingConsent(false);
    kite->addTechnicalEvents({"a"});
    kite->addProfilingOnlyEvents({"b"});
    kite->start(TestWorld().dependencies());
  }
  bool areReadsEmpty() const {
    return kite->sessionDataKiteValue().empty() && kite->userInfoKiteValue().empty() &&
           !kite->firstInstallTimestamp() && kite->keychainId().empty() &&
           kite->userDefaultsId().empty() && kite->currentSessionId() == UUID() &&
           kite->currentProcessId() == UUID() && !kite->installedBeforeKite();
  }

  TestWorld world;
  std::unique_ptr<KiteManagerImpl> kite;
  std::atomic<bool> isToPause = false;
  std::binary_semaphore isPaused{0}, mayGoOn{0};
  std::thread other;
};

TEST_F(ForkedChildTests, operationsDoNothing) {
  const auto stored = world.keyValues->text("kite_tracking_consent");
  EXPECT_EQ(statusOfChild([&] {
              callEveryOperation();
              return world.keyValues->text("kite_tracking_consent") == stored ? 0 : 1;
            }),
            0);
}

TEST_F(ForkedChildTests, aDrainEndsAtOnceAndTheStatusIsEmpty) {
  EXPECT_EQ(statusOfChild([&] {
              const auto report = drain(*kite, {.deliverWithin = Tempra::Duration(1)});
              const auto found = status(*kite);
              const bool isEmpty = found.ledger == Ledger() && !found.lastUpload;
              return report == DrainReport() && isEmpty ? 0 : 1;
            }),
            0);
}

TEST_F(ForkedChildTests, readsGiveEmptyValues) {
  EXPECT_EQ(statusOfChild([&] { return areReadsEmpty() ? 0 : 1; }), 0);
}

TEST_F(ForkedChildTests, theEndOfTheFacadeLeavesItsPartsAlone) {
  EXPECT_EQ(statusOfChild([&] {
              const auto armed = world.time->armed();
              kite.reset();
              return armed != 0 && world.time->armed() == armed ? 0 : 1;
            }),
            0);
}

TEST_F(ForkedChildTests, mayExit) {
  EXPECT_EQ(statusOfChild([&]() -> int {
              static const auto ending = std::move(kite);  // ends with the process
              ending->trackUserAction("action", {});
              std::exit(0);
            }),
            0);
}

TEST_F(ForkedChildTests, aFacadeOfItsOwnWorks) {
  EXPECT_EQ(statusOfChild([] {
              TestWorld own;
              auto system = own.system.system();
              system.forkCount = System::live().forkCount;
              KiteManagerImpl facade(system);
              facade.start(own.dependencies());
              facade.addUserInfo("k", 1);
              return facade.userInfoKiteValue().contains("k") ? 0 : 1;
            }),
            0);
}

TEST_F(ForkedChildTests, theParentGoesOn) {
  EXPECT_EQ(statusOfChild([&] {
              callEveryOperation();
              return 0;
            }),
            0);
  EXPECT_NE(kite->currentProcessId(), UUID());
}

}  // namespace
}  // namespace kite
