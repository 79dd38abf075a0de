#include <Kite/BackgroundTaskScheduler.h>

#include "Support/FakeApplication.h"

#include <gmock/gmock.h>

namespace kite::test {
namespace {

class ApplicationsBackgroundTasks : public testing::Test {
 protected:
  std::shared_ptr<FakeApplication> application = std::make_shared<FakeApplication>();
  BackgroundTaskScheduler tasks = BackgroundTaskScheduler::uiApplication(application);
};

TEST_F(ApplicationsBackgroundTasks, areBegunAndEndedAtTheApplication) {
  const auto one = tasks.beginBackgroundTask(std::nullopt);
  const auto two = tasks.beginBackgroundTask(std::nullopt);
  EXPECT_NE(one, UIBackgroundTaskInvalid);
  EXPECT_NE(one, two);
  EXPECT_EQ(application->runningTasks(), 2U);
  tasks.endBackgroundTask(one);
  EXPECT_THAT(application->endedTasks(), testing::ElementsAre(one));
  EXPECT_EQ(application->runningTasks(), 1U);
}

TEST_F(ApplicationsBackgroundTasks, passTheirExpirationHandlerOn) {
  int expirations = 0;
  tasks.beginBackgroundTask([&] { ++expirations; });
  EXPECT_EQ(expirations, 0);
  application->expireBackgroundTasks();
  EXPECT_EQ(expirations, 1);
}

/// Notes whether the last task came with a handler.
class HandlerWatch final : public Application {
 public:
  std::optional<bool> hadHandler;

  ApplicationState applicationState() const override { return ApplicationState::active; }
  UIBackgroundTaskIdentifier beginBackgroundTask(
      std::optional<std::function<void()>> expirationHandler) override {
    hadHandler = expirationHandler.has_value();
    return 7;
  }
  void endBackgroundTask(UIBackgroundTaskIdentifier) override {}
};

TEST(BackgroundTaskSchedulerTests, passesNoBlockWhenThereIsNoHandler) {
  const auto application = std::make_shared<HandlerWatch>();
  const auto tasks = BackgroundTaskScheduler::uiApplication(application);
  EXPECT_EQ(tasks.beginBackgroundTask(std::nullopt), 7U);
  EXPECT_EQ(application->hadHandler, std::optional(false));
  tasks.beginBackgroundTask([] {});
  EXPECT_EQ(application->hadHandler, std::optional(true));
}

TEST(BackgroundTaskSchedulerTests, withoutABackgroundTasksAreInvalidAndNeverExpire) {
  const auto tasks = BackgroundTaskScheduler::noBackground();
  int expirations = 0;
  const auto task = tasks.beginBackgroundTask([&] { ++expirations; });
  EXPECT_EQ(task, UIBackgroundTaskInvalid);
  tasks.endBackgroundTask(task);
  EXPECT_EQ(expirations, 0);
}

}  // namespace
}  // namespace kite::test
