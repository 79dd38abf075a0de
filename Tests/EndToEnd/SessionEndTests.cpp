#include "EndToEnd/Host.h"

#include <gmock/gmock.h>

#include <atomic>
#include <csignal>
#include <exception>
#include <string>
#include <thread>
#include <vector>

namespace kite::test {
namespace {

using testing::ElementsAre;

constexpr int runs = 200;
constexpr int atATime = 4;

/// Tracks in a session of its own, ends it, and dies once the storage's queue has come to rest.
std::vector<Event> leftByASession(const std::string& endpoint, const std::string& ca) {
  const Application application;
  Host host(application, endpoint, ca, {"--sessions", "manual"});
  host.start();
  host.call(R"({"op":"triggerSessionStart"})");
  for (const auto* name : {"one", "two", "three"}) host.process.send(Host::action(name));
  host.process.send(R"({"op":"triggerSessionEnd"})");
  host.process.send(R"({"op":"awaitStorage"})");
  host.process.send(R"({"op":"crash"})");
  EXPECT_EQ(host.process.wait(), -SIGKILL);
  return queued(application.state);
}

void expectAWholeSession(const std::vector<Event>& events) {
  ASSERT_THAT(types(events), ElementsAre("UserInfoUpdated", "Install", "Session", "UserAction",
                                         "UserAction", "UserAction", "Session"));
  EXPECT_TRUE(events.back().has(R"("subtype":"session_end")")) << events.back().data;
}

// Several at a time, so that threads are interrupted where they would not be otherwise.
TEST(SessionEnd, isOnDiskWithAllBeforeItWhenTheStoragesQueueIsAtRest) {
  const ClosedPort nowhere;
  const Collector certified;
  std::atomic<int> next = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < atATime; ++i)
    threads.emplace_back([&] {
      while (next++ < runs && !testing::Test::HasFailure()) {
        try {
          expectAWholeSession(leftByASession(nowhere.url(), certified.ca()));
        } catch (const std::exception& error) {
          ADD_FAILURE() << error.what();
        }
      }
    });
  for (auto& thread : threads) thread.join();
}

}  // namespace
}  // namespace kite::test
