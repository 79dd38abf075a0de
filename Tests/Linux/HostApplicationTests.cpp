#include <Kite/Linux/LinuxPlatform.h>

#include <gtest/gtest.h>

#include <memory>
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

TEST_F(HostApplicationTests, neverExpiresATask) {
  bool hasExpired = false;
  const auto task = application->beginBackgroundTask([&hasExpired] { hasExpired = true; });
  application->didEnterBackground();
  application->willEnterForeground();
  application->endBackgroundTask(task);
  EXPECT_FALSE(hasExpired);
}

}  // namespace
}  // namespace kite::Linux
