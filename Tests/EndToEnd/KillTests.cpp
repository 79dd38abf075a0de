#include "EndToEnd/Host.h"

#include <csignal>
#include <cstdlib>
#include <map>
#include <random>
#include <set>

namespace kite::test {
namespace {

int rounds() {
  const char* wanted = std::getenv("KITE_KILL_ROUNDS");
  return wanted ? std::atoi(wanted) : 20;
}

/// Where every action is found, by its name: in the queue, at the collector, or in both.
std::map<std::string, std::set<std::string>> idsByAction(const std::vector<Event>& events) {
  std::map<std::string, std::set<std::string>> ids;
  const std::string key = R"("action_kind":")";
  for (const auto& event : events) {
    if (const auto at = event.data.find(key); at != event.data.npos) {
      const auto begin = at + key.size();
      ids[event.data.substr(begin, event.data.find('"', begin) - begin)].insert(event.id);
    }
  }
  return ids;
}

/// An application that is killed again and again while it tracks in the background.
class KillTests : public testing::Test {
 protected:
  std::map<std::string, std::set<std::string>> kept() const {
    auto events = queued(application.state);
    const auto arrived = collector.events();
    events.insert(events.end(), arrived.begin(), arrived.end());
    return idsByAction(events);
  }

  void trackSafely(Host& host, int round) {
    std::vector<std::string> names;
    for (int at = 0; at < 5; ++at)
      names.push_back("safe_" + std::to_string(round) + "_" + std::to_string(at));
    for (const auto& name : names) host.track(name);
    const auto isKept = [&] {
      const auto now = kept();
      return std::all_of(names.begin(), names.end(),
                         [&](const auto& name) { return now.contains(name); });
    };
    EXPECT_TRUE(eventually(isKept));
    safe.insert(names.begin(), names.end());
  }

  void killWhileTracking(Host& host, int round) {
    for (int at = 0; at < burst; ++at) host.process.send(Host::action(riskyName(round, at)));
    const int answers = std::uniform_int_distribution(0, burst)(random);
    for (int at = 0; at < answers; ++at) EXPECT_EQ(host.process.receive(), R"({"ok":true})");
    pause(std::uniform_real_distribution(0.0, 0.004)(random));
    host.process.signal(SIGKILL);
    EXPECT_EQ(host.process.wait(), -SIGKILL);
  }

  void check(int round) const {
    const auto found = kept();
    for (const auto& name : safe) EXPECT_TRUE(found.contains(name)) << name << " is lost";
    for (const auto& [name, ids] : found) EXPECT_EQ(ids.size(), 1U) << name << " has two ids";
    bool isPrefix = true;
    for (int at = 1; at < burst; ++at)
      isPrefix = isPrefix && (found.contains(riskyName(round, at - 1)) ||
                              !found.contains(riskyName(round, at)));
    EXPECT_TRUE(isPrefix) << "a later event outlived an earlier one";
  }

  static std::string riskyName(int round, int at) {
    return "risky_" + std::to_string(round) + "_" + std::to_string(at);
  }

  static constexpr int burst = 60;
  const unsigned seed = std::random_device{}();
  std::mt19937 random{seed};
  Collector collector;
  Application application;
  std::set<std::string> safe;
};

TEST_F(KillTests, keepsWhatWasWrittenThroughHoweverOftenItIsKilled) {
  SCOPED_TRACE("seed " + std::to_string(seed));
  for (int round = 0; round < rounds() && !HasFailure(); ++round) {
    Host host(application, collector, {"--start-in-background"});
    host.start();
    trackSafely(host, round);
    killWhileTracking(host, round);
    check(round);
  }
  EXPECT_EQ(occurrences(contents(application.log), "corrupt"), 0) << contents(application.log);

  const auto all = kept();
  Host host(application, collector, {"--start-in-background"});
  host.start();
  EXPECT_TRUE(eventually([&] { return queued(application.state).empty(); }, 60));
  EXPECT_EQ(idsByAction(collector.events()), all);
}

}  // namespace
}  // namespace kite::test
