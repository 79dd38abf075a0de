#include <Kite/Linux/LinuxPlatform.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <memory>
#include <semaphore>
#include <set>
#include <thread>
#include <vector>

namespace kite::Linux {
namespace {

class HostApplicationTests : public testing::Test {
 protected:
  // Collects the states that the handlers of a notification find.
  void watch(std::string_view name, std::vector<ApplicationState>& seen) {
    center->addObserver(name, [this, &seen] { seen.push_back(application->applicationState()); });
  }

  std::shared_ptr<NotificationCenter> center = notificationCenter();
  std::shared_ptr<HostApplication> application = hostApplication(center);
  std::vector<ApplicationState> entering;
  std::vector<ApplicationState> leaving;
};

TEST_F(HostApplicationTests, beginsInTheStateThatItIsGiven) {
  EXPECT_EQ(application->applicationState(), ApplicationState::active);
  EXPECT_EQ(hostApplication(center, ApplicationState::background)->applicationState(),
            ApplicationState::background);
}

TEST_F(HostApplicationTests, isInTheBackgroundBeforeItSaysSo) {
  watch(UIApplicationDidEnterBackgroundNotification, leaving);
  watch(UIApplicationWillEnterForegroundNotification, entering);
  application->didEnterBackground();
  EXPECT_EQ(leaving, std::vector{ApplicationState::background});
  EXPECT_TRUE(entering.empty());
}

TEST_F(HostApplicationTests, isActiveBeforeItSaysSo) {
  application->didEnterBackground();
  watch(UIApplicationDidEnterBackgroundNotification, leaving);
  watch(UIApplicationWillEnterForegroundNotification, entering);
  application->willEnterForeground();
  EXPECT_EQ(entering, std::vector{ApplicationState::active});
  EXPECT_TRUE(leaving.empty());
}

TEST_F(HostApplicationTests, givesEachBackgroundTaskAnIdentifierOfItsOwn) {
  const auto first = application->beginBackgroundTask([] {});
  const auto second = application->beginBackgroundTask({});
  EXPECT_NE(first, UIBackgroundTaskInvalid);
  EXPECT_NE(second, UIBackgroundTaskInvalid);
  EXPECT_NE(first, second);
  application->endBackgroundTask(first);
  EXPECT_NE(application->beginBackgroundTask({}), first);
}

TEST_F(HostApplicationTests, expiresNoTaskByItself) {
  bool hasExpired = false;
  const auto task = application->beginBackgroundTask([&hasExpired] { hasExpired = true; });
  application->didEnterBackground();
  application->willEnterForeground();
  application->endBackgroundTask(task);
  EXPECT_FALSE(hasExpired);
}

TEST_F(HostApplicationTests, expiresEveryTaskThatIsUnderWayOnce) {
  int first = 0;
  int second = 0;
  application->beginBackgroundTask([&] { ++first; });
  application->beginBackgroundTask({});
  application->beginBackgroundTask([&] { ++second; });
  application->expireBackgroundTasks();
  EXPECT_EQ(first, 1);
  EXPECT_EQ(second, 1);
  application->expireBackgroundTasks();
  EXPECT_EQ(first, 1);
  EXPECT_EQ(second, 1);
}

TEST_F(HostApplicationTests, doesNotExpireATaskThatHasEnded) {
  bool hasExpired = false;
  const auto task = application->beginBackgroundTask([&] { hasExpired = true; });
  application->endBackgroundTask(task);
  application->endBackgroundTask(task);
  application->expireBackgroundTasks();
  EXPECT_FALSE(hasExpired);
}

TEST_F(HostApplicationTests, letsAHandlerEndItsOwnTaskAndOthers) {
  std::vector<UIBackgroundTaskIdentifier> tasks;
  int expired = 0;
  const auto endAll = [&] {
    ++expired;
    for (const auto task : tasks) application->endBackgroundTask(task);
  };
  tasks.push_back(application->beginBackgroundTask(endAll));
  tasks.push_back(application->beginBackgroundTask(endAll));
  application->expireBackgroundTasks();
  EXPECT_EQ(expired, 1);
}

TEST_F(HostApplicationTests, runsAHandlerOnTheThreadThatSaysThatTimeIsUp) {
  std::thread::id runner;
  application->beginBackgroundTask([&] { runner = std::this_thread::get_id(); });
  application->expireBackgroundTasks();
  EXPECT_EQ(runner, std::this_thread::get_id());
}

// Whatever the handler uses may go once its task has ended.
TEST_F(HostApplicationTests, endsATaskOnlyOnceItsHandlerHasReturned) {
  for (int round = 0; round < 20; ++round) {
    std::binary_semaphore begun(0);
    std::atomic<bool> isGone = false;
    bool cameLate = false;
    const auto task = application->beginBackgroundTask([&] {
      begun.release();
      for (int i = 0; i < 100; ++i) std::this_thread::yield();
      cameLate = isGone;
    });
    std::thread expiring([&] { application->expireBackgroundTasks(); });
    begun.acquire();
    application->endBackgroundTask(task);
    isGone = true;
    expiring.join();
    ASSERT_FALSE(cameLate);
  }
}

TEST_F(HostApplicationTests, givesTasksOfSeveralThreadsIdentifiersOfTheirOwn) {
  std::vector<UIBackgroundTaskIdentifier> tasks(400);
  std::vector<std::thread> threads;
  for (std::size_t thread = 0; thread < 4; ++thread)
    threads.emplace_back([&, thread] {
      for (std::size_t i = thread; i < tasks.size(); i += 4) {
        tasks[i] = application->beginBackgroundTask([] {});
        if (i % 2 == 0) application->endBackgroundTask(tasks[i]);
        application->expireBackgroundTasks();
      }
    });
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(std::set(tasks.begin(), tasks.end()).size(), tasks.size());
}

}  // namespace
}  // namespace kite::Linux
