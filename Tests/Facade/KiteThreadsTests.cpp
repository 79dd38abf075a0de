#include <Kite/Kite.h>

#include "Support/TestWorld.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <functional>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace kite::test {
namespace {

constexpr int callers = 4;
constexpr int callsEach = 20;

class KiteThreadsTests : public testing::Test {
 protected:
  TestWorld world;
  KiteManagerImpl kite{world.system.system()};

  void SetUp() override {
    world.network.respond(answers(500));
    kite.start(world.dependencies());
  }

  /// `call` gets a name that no other call gets.
  void callFromSeveralThreads(const std::function<void(const std::string& name)>& call) {
    std::vector<std::thread> threads;
    for (int caller = 0; caller < callers; ++caller) {
      threads.emplace_back([&call, caller] {
        for (int turn = 0; turn < callsEach; ++turn)
          call(std::to_string(caller) + "-" + std::to_string(turn));
      });
    }
    for (auto& thread : threads) thread.join();
  }
  std::size_t distinctIdsOf(std::string_view type) {
    std::set<std::string> ids;
    for (const auto& event : world.flushedEvents(type)) ids.insert(*event.at("id")->string());
    return ids.size();
  }
};

TEST_F(KiteThreadsTests, everyEventOfEveryThreadIsRecorded) {
  callFromSeveralThreads([this](const std::string& name) {
    kite.trackUserAction(name, {});
    kite.trackCustomEvent("Orders", {{"name", name}});
    kite.trackLog(name, Severity::debug, {});
  });
  EXPECT_EQ(distinctIdsOf("UserAction"), std::size_t{callers * callsEach});
  EXPECT_EQ(distinctIdsOf("Orders"), std::size_t{callers * callsEach});
  EXPECT_EQ(distinctIdsOf("DebugEvent"), std::size_t{callers * callsEach});
}

// An update may overwrite one of another thread's; its key is then lost, which is reported too.
TEST_F(KiteThreadsTests, everyUpdateOfTheUserInfoIsReported) {
  kite.addUserInfo("kept", 1);
  const auto before = distinctIdsOf("UserInfoUpdated");
  callFromSeveralThreads([this](const std::string& name) { kite.addUserInfo(name, 1); });
  EXPECT_EQ(distinctIdsOf("UserInfoUpdated"), before + callers * callsEach);
  EXPECT_TRUE(kite.userInfoKiteValue().contains("kept"));
}

TEST_F(KiteThreadsTests, readsAnswerWhileOthersWrite) {
  const auto session = kite.currentSessionId();
  const auto process = kite.currentProcessId();
  std::atomic<int> wrongAnswers = 0;
  callFromSeveralThreads([&](const std::string& name) {
    kite.addUserInfo("last", name);
    kite.addSessionData("last", name);
    const bool isRight = kite.currentSessionId() == session && kite.currentProcessId() == process &&
                         kite.keychainId() == "keychain" &&
                         kite.userInfoKiteValue().contains("last") &&
                         kite.sessionDataKiteValue().contains("last");
    if (!isRight) ++wrongAnswers;
  });
  EXPECT_EQ(wrongAnswers, 0);
}

}  // namespace
}  // namespace kite::test
