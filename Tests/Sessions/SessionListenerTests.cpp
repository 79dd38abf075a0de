#include <Kite/SessionListener.h>

#include "Sessions/SessionEndHandler.h"
#include "Support/FakeNotificationCenter.h"

#include <gmock/gmock.h>

#include <atomic>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <thread>
#include <unordered_set>
#include <utility>
#include <vector>

namespace kite::test {
namespace {

constexpr auto willEnterForeground = "UIApplicationWillEnterForegroundNotification";
constexpr auto didEnterBackground = "UIApplicationDidEnterBackgroundNotification";

SessionListener::Handler counting(int& calls) {
  return [&calls] { ++calls; };
}

/// Registers one handler for every step of an end, in the order of the managers' start, twice, and
/// gives what `signal` calls.
std::vector<std::string> stepsOf(const SessionListener& listener,
                                 const std::function<void()>& signal) {
  auto called = std::make_shared<std::vector<std::string>>();
  const auto noting = [&](const char* name) {
    return [called, name] { called->emplace_back(name); };
  };
  for (int start = 0; start < 2; ++start) {
    listener.onSessionEnd(SessionEndHandler{SessionEndStep::writeQueue, noting("storage")});
    listener.onSessionEnd(SessionEndHandler{SessionEndStep::recordEnd, noting("session")});
    listener.onSessionEnd(SessionEndHandler{SessionEndStep::upload, noting("synchronization")});
  }
  listener.onSessionEnd(noting("host"));
  listener.onSessionEnd(noting("host's second"));
  signal();
  return *called;
}
const std::vector<std::string> allSteps{
    "host",    "host's second", "session",         "session",
    "storage", "storage",       "synchronization", "synchronization"};

/// Has no memory for the first observer.
class FailingOnceCenter final : public NotificationCenter {
 public:
  std::shared_ptr<Observation> addObserver(std::string_view name,
                                           std::function<void()> block) override {
    if (!std::exchange(_hasFailed, true)) throw std::bad_alloc();
    return center.addObserver(name, std::move(block));
  }
  void removeObserver(const std::shared_ptr<Observation>& observation) override {
    center.removeObserver(observation);
  }
  void post(std::string_view name) override { center.post(name); }

  FakeNotificationCenter center;

 private:
  bool _hasFailed = false;
};

class AutomaticSessionListener : public testing::Test {
 protected:
  std::shared_ptr<FakeNotificationCenter> center = std::make_shared<FakeNotificationCenter>();
  SessionListener listener = SessionListener::notificationCenter(center);
  int first = 0;
  int second = 0;
};

TEST_F(AutomaticSessionListener, doesNotDisableAutomaticSessions) {
  EXPECT_FALSE(listener.disableAutomaticSession);
}

TEST_F(AutomaticSessionListener, observesNothingUntilSomeoneRegisters) {
  EXPECT_EQ(center->observers(willEnterForeground), 0U);
  EXPECT_EQ(center->observers(didEnterBackground), 0U);
}

TEST_F(AutomaticSessionListener, twoStartHandlersShareOneObserverAndAreCalledOnceEach) {
  listener.onSessionStart(counting(first));
  listener.onSessionStart(counting(second));
  EXPECT_EQ(center->observers(willEnterForeground), 1U);
  EXPECT_EQ(center->observers(didEnterBackground), 0U);
  center->post(willEnterForeground);
  EXPECT_EQ(first, 1);
  EXPECT_EQ(second, 1);
}

TEST_F(AutomaticSessionListener, endHandlersFollowTheBackgroundNotificationOnly) {
  listener.onSessionEnd(counting(first));
  EXPECT_EQ(center->observers(didEnterBackground), 1U);
  center->post(willEnterForeground);
  EXPECT_EQ(first, 0);
  center->post(didEnterBackground);
  EXPECT_EQ(first, 1);
}

TEST_F(AutomaticSessionListener, everyRegistrationGetsATokenOfItsOwn) {
  const auto one = listener.onSessionStart(counting(first));
  const auto two = listener.onSessionStart(counting(first));
  EXPECT_NE(one, two);
  EXPECT_EQ((std::unordered_set<CancelToken>{one, two, one}.size()), 2U);
}

TEST_F(AutomaticSessionListener, aDetachedHandlerIsNotCalledAnyMore) {
  const auto token = listener.onSessionStart(counting(first));
  listener.onSessionStart(counting(second));
  listener.detachSessionStart(token);
  EXPECT_EQ(center->observers(willEnterForeground), 1U);
  center->post(willEnterForeground);
  EXPECT_EQ(first, 0);
  EXPECT_EQ(second, 1);
}

TEST_F(AutomaticSessionListener, detachingTheLastHandlerRemovesTheObserver) {
  const auto start = listener.onSessionStart(counting(first));
  const auto end = listener.onSessionEnd(counting(second));
  listener.detachSessionStart(start);
  EXPECT_EQ(center->observers(willEnterForeground), 0U);
  EXPECT_EQ(center->observers(didEnterBackground), 1U);
  listener.detachSessionEnd(end);
  EXPECT_EQ(center->observers(didEnterBackground), 0U);
}

TEST_F(AutomaticSessionListener, aHandlerRegisteredAfterTheLastOneLeftIsNeverCalled) {
  listener.detachSessionStart(listener.onSessionStart(counting(first)));
  listener.onSessionStart(counting(second));
  EXPECT_EQ(center->observers(willEnterForeground), 0U);
  center->post(willEnterForeground);
  EXPECT_EQ(second, 0);
}

TEST_F(AutomaticSessionListener, theSameHoldsForEndHandlers) {
  listener.detachSessionEnd(listener.onSessionEnd(counting(first)));
  listener.onSessionEnd(counting(second));
  EXPECT_EQ(center->observers(didEnterBackground), 0U);
  center->post(didEnterBackground);
  EXPECT_EQ(second, 0);
}

TEST_F(AutomaticSessionListener, anEndIsRecordedThenWrittenThenUploaded) {
  EXPECT_EQ(stepsOf(listener, [&] { center->post(didEnterBackground); }), allSteps);
}

TEST_F(AutomaticSessionListener, startHandlersAreCalledAsTheyWereRegistered) {
  std::vector<int> called;
  for (int i = 0; i < 3; ++i) listener.onSessionStart([&called, i] { called.push_back(i); });
  center->post(willEnterForeground);
  EXPECT_EQ(called, (std::vector{0, 1, 2}));
}

TEST_F(AutomaticSessionListener, aRegistrationThatFailsLeavesNothingBehindAndMayBeRepeated) {
  const auto failing = std::make_shared<FailingOnceCenter>();
  const auto onFailing = SessionListener::notificationCenter(failing);
  EXPECT_THROW(onFailing.onSessionEnd(counting(first)), std::bad_alloc);
  onFailing.onSessionEnd(counting(second));
  failing->center.post(didEnterBackground);
  EXPECT_EQ(first, 0);
  EXPECT_EQ(second, 1);
}

TEST_F(AutomaticSessionListener, anUnknownTokenIsIgnored) {
  const auto token = listener.onSessionStart(counting(first));
  listener.detachSessionStart(CancelToken{});
  listener.detachSessionEnd(token);
  EXPECT_EQ(center->observers(willEnterForeground), 1U);
  center->post(willEnterForeground);
  EXPECT_EQ(first, 1);
}

TEST_F(AutomaticSessionListener, copiesShareTheirHandlers) {
  const SessionListener copy = listener;
  const auto token = copy.onSessionStart(counting(first));
  listener.onSessionStart(counting(second));
  EXPECT_EQ(center->observers(willEnterForeground), 1U);
  listener.detachSessionStart(token);
  center->post(willEnterForeground);
  EXPECT_EQ(first, 0);
  EXPECT_EQ(second, 1);
}

TEST_F(AutomaticSessionListener, handlersDieWithTheLastCopy) {
  auto token = std::make_shared<int>();
  const std::weak_ptr<int> watched = token;
  listener.onSessionStart([token = std::move(token)] { static_cast<void>(token); });
  listener = SessionListener{};
  EXPECT_TRUE(watched.expired());
  center->post(willEnterForeground);
}

TEST_F(AutomaticSessionListener, handlersRunOnTheThreadThatPosts) {
  std::vector<std::thread::id> ranOn;
  listener.onSessionStart([&] { ranOn.push_back(std::this_thread::get_id()); });
  listener.onSessionEnd([&] { ranOn.push_back(std::this_thread::get_id()); });
  std::thread posting([&] {
    const auto here = std::this_thread::get_id();
    center->post(willEnterForeground);
    center->post(didEnterBackground);
    EXPECT_EQ(ranOn, (std::vector{here, here}));
  });
  posting.join();
}

TEST_F(AutomaticSessionListener, aHandlerMayDetachItselfAndRegisterAnother) {
  std::optional<CancelToken> token;
  token = listener.onSessionStart([&] {
    ++first;
    listener.detachSessionStart(*token);
    listener.onSessionStart(counting(second));
  });
  int everyTime = 0;
  listener.onSessionStart(counting(everyTime));
  center->post(willEnterForeground);
  EXPECT_EQ(second, 0) << "the notification reaches those that were registered when it came";
  center->post(willEnterForeground);
  EXPECT_EQ(first, 1);
  EXPECT_EQ(second, 1);
  EXPECT_EQ(everyTime, 2);
}

TEST(ManualSessionListener, disablesAutomaticSessions) {
  EXPECT_TRUE(SessionListener::manual().witness.disableAutomaticSession);
}

TEST(ManualSessionListener, aTriggerWithoutHandlersIsNotMadeUpForLater) {
  const auto manual = SessionListener::manual();
  int calls = 0;
  manual.triggerSessionStart();
  manual.triggerSessionEnd();
  manual.witness.onSessionStart(counting(calls));
  manual.witness.onSessionEnd(counting(calls));
  EXPECT_EQ(calls, 0);
  manual.triggerSessionStart();
  manual.triggerSessionEnd();
  EXPECT_EQ(calls, 2);
}

TEST(ManualSessionListener, eachTriggerCallsTheHandlersOfItsSideOnce) {
  const auto manual = SessionListener::manual();
  int starts = 0;
  int ends = 0;
  manual.witness.onSessionStart(counting(starts));
  manual.witness.onSessionStart(counting(starts));
  manual.witness.onSessionEnd(counting(ends));
  manual.triggerSessionStart();
  EXPECT_EQ(starts, 2);
  EXPECT_EQ(ends, 0);
  manual.triggerSessionEnd();
  EXPECT_EQ(starts, 2);
  EXPECT_EQ(ends, 1);
}

TEST(ManualSessionListener, anEndIsRecordedThenWrittenThenUploaded) {
  const auto manual = SessionListener::manual();
  EXPECT_EQ(stepsOf(manual.witness, manual.triggerSessionEnd), allSteps);
}

TEST(ManualSessionListener, detachedHandlersAreNotCalled) {
  const auto manual = SessionListener::manual();
  int starts = 0;
  int ends = 0;
  manual.witness.detachSessionStart(manual.witness.onSessionStart(counting(starts)));
  manual.witness.detachSessionEnd(manual.witness.onSessionEnd(counting(ends)));
  manual.triggerSessionStart();
  manual.triggerSessionEnd();
  EXPECT_EQ(starts, 0);
  EXPECT_EQ(ends, 0);
}

TEST(ManualSessionListener, aHandlerRegisteredAfterTheLastOneLeftIsCalled) {
  const auto manual = SessionListener::manual();
  int starts = 0;
  manual.witness.detachSessionStart(manual.witness.onSessionStart([] {}));
  manual.witness.onSessionStart(counting(starts));
  manual.triggerSessionStart();
  EXPECT_EQ(starts, 1);
}

TEST(ManualSessionListener, handlersRunOnTheThreadThatTriggers) {
  const auto manual = SessionListener::manual();
  std::thread::id ranOn;
  manual.witness.onSessionStart([&] { ranOn = std::this_thread::get_id(); });
  manual.triggerSessionStart();
  EXPECT_EQ(ranOn, std::this_thread::get_id());
}

TEST_F(AutomaticSessionListener, threadsMayRegisterAndDetachAndSignalAtOnce) {
  std::atomic<int> calls = 0;
  listener.onSessionStart([&] { ++calls; });
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([&] {
      for (int round = 0; round < 100; ++round) {
        const auto token = listener.onSessionStart([] {});
        center->post(willEnterForeground);
        listener.detachSessionStart(token);
      }
    });
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(calls, 400);
  EXPECT_EQ(center->observers(willEnterForeground), 1U);
}

}  // namespace
}  // namespace kite::test
