#include <Kite/BackgroundChecker.h>

#include "Support/FakeApplication.h"
#include "Support/FakeMainThread.h"

#include <gtest/gtest.h>

namespace kite::test {
namespace {

class ApplicationsBackgroundChecker : public testing::Test {
 protected:
  std::shared_ptr<FakeApplication> application = std::make_shared<FakeApplication>();
  std::shared_ptr<FakeMainThread> mainThread = std::make_shared<FakeMainThread>();
  BackgroundChecker checker = BackgroundChecker::uiApplication(application, mainThread);

  bool answerIn(ApplicationState state) {
    application->setState(state);
    return checker.isInBackground();
  }
};

TEST_F(ApplicationsBackgroundChecker, answersTrueInTheBackgroundStateOnly) {
  EXPECT_TRUE(answerIn(ApplicationState::background));
  EXPECT_FALSE(answerIn(ApplicationState::inactive));
  EXPECT_FALSE(answerIn(ApplicationState::active));
}

TEST_F(ApplicationsBackgroundChecker, theBackgroundStateIsNumberTwo) {
  EXPECT_TRUE(answerIn(ApplicationState{2}));
  EXPECT_FALSE(answerIn(ApplicationState{1}));
  EXPECT_FALSE(answerIn(ApplicationState{0}));
}

TEST_F(ApplicationsBackgroundChecker, asksAnewEachTimeOnTheMainThread) {
  answerIn(ApplicationState::active);
  answerIn(ApplicationState::active);
  EXPECT_EQ(mainThread->runs(), 2);
}

/// Notes whether it is asked on the main thread.
class WatchfulApplication final : public Application {
 public:
  explicit WatchfulApplication(std::shared_ptr<FakeMainThread> mainThread)
      : _mainThread(std::move(mainThread)) {}

  ApplicationState applicationState() const override {
    return _mainThread->isRunning() ? ApplicationState::background : ApplicationState::active;
  }
  UIBackgroundTaskIdentifier beginBackgroundTask(std::optional<std::function<void()>>) override {
    return UIBackgroundTaskInvalid;
  }
  void endBackgroundTask(UIBackgroundTaskIdentifier) override {}

 private:
  std::shared_ptr<FakeMainThread> _mainThread;
};

TEST_F(ApplicationsBackgroundChecker, readsTheStateWithinTheMainThreadsTurn) {
  const auto watchful = std::make_shared<WatchfulApplication>(mainThread);
  EXPECT_TRUE(BackgroundChecker::uiApplication(watchful, mainThread).isInBackground());
}

TEST_F(ApplicationsBackgroundChecker, saysWhichThreadItWaitsFor) {
  EXPECT_EQ(checker.mainThread, mainThread);
  EXPECT_EQ(BackgroundChecker::noBackground().mainThread, nullptr);
}

TEST(NoBackgroundChecker, alwaysAnswersFalse) {
  EXPECT_FALSE(BackgroundChecker::noBackground().isInBackground());
}

}  // namespace
}  // namespace kite::test
