#include <Kite/Linux/KiteApplication.h>

#include "JSON/JSONDecoder.h"
#include "Support/Gunzip.h"
#include "Support/TLSTestServer.h"
#include "Support/TemporaryFolder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace kite::test {
namespace {

using Linux::KiteApplication;
using Linux::KiteApplicationOptions;
using Linux::Sessions;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

constexpr DrainLimits timeToDeliver{.persistWithin = Tempra::Duration(20),
                                    .deliverWithin = Tempra::Duration(20)};

/// Applications in a folder of their own, and the service that they send to.
class KiteApplicationTests : public testing::Test {
 protected:
  KiteApplicationTests() {
    for (const char* name : {"KITE_KEY", "KITE_ENDPOINT", "KITE_CA_FILE", "KITE_DEBUG"})
      ::unsetenv(name);
  }

  KiteApplicationOptions options() {
    return {.name = "trail-maps",
            .key = "secret",
            .endpoint = server.url("/v4/events").absoluteString(),
            .dataFolder = folder.path() / "data",
            .secretsFolder = folder.path() / "secrets",
            .caFile = ca.path(),
            .drainLimits = timeToDeliver,
            .onDrained = [this](const DrainReport& report) { drained.push_back(report); },
            .print = [this](std::string_view line) { print(line); }};
  }
  static KiteApplication start(KiteApplicationOptions options) {
    auto started = KiteApplication::start(std::move(options));
    if (!started) throw std::invalid_argument(started.error());
    return *std::move(started);
  }
  KiteApplication start() { return start(options()); }
  /// As another process finds the folder. An upload under way holds the stores until it has ended.
  KiteApplication startAgain() {
    for (const char* lock : {"data/kv.lock", "secrets/secrets.lock"}) {
      const int file = ::open((folder.path() / lock).c_str(), O_RDONLY | O_CLOEXEC);
      while (::flock(file, LOCK_EX | LOCK_NB) != 0) std::this_thread::yield();
      ::close(file);
    }
    return start();
  }
  KiteApplicationOptions optionsFor(Sessions sessions) {
    auto given = options();
    given.sessions = sessions;
    return given;
  }

  void print(std::string_view line) {
    const std::scoped_lock guard(mutex);
    printed.emplace_back(line);
  }
  std::vector<std::string> lines() {
    const std::scoped_lock guard(mutex);
    return printed;
  }
  /// What arrived, each event once, in the order of arrival: its type, or what it is about.
  std::vector<std::string> arrived(const std::set<std::string>& wanted) const {
    std::vector<std::string> names;
    std::set<std::string> ids;
    for (const auto& request : server.requests()) {
      const auto body = decodeJSON(gunzip(request.body).value());
      for (const auto& event : *body->object()->at("events")->array()) {
        const auto& members = *event.object();
        const auto name = nameOf(members);
        if (wanted.contains(name) && ids.insert(*members.at("id")->string()).second)
          names.push_back(name);
      }
    }
    return names;
  }
  static std::string nameOf(const JSONValue::Object& event) {
    const auto& data = *event.at("data")->object();
    for (const char* key : {"subtype", "action_kind"})
      if (const auto* name = data.at(key)) return *name->string();
    return *event.at("type")->string();
  }
  std::vector<std::string> sessionsAndActions() const {
    return arrived({"session_start", "session_end", "a", "b"});
  }
  std::string origin() const { return server.url().origin(); }

  TemporaryFolder folder;
  TestAuthority authority;
  CAFile ca{authority};
  std::atomic<int> answer = 200;
  std::mutex mutex;
  std::vector<std::string> printed;
  std::vector<DrainReport> drained;
  TLSTestServer server{authority.issue(), [this](const ReceivedRequest&) {
                         return replies(answer, answer == 200 ? "{}" : "");
                       }};
};

TEST_F(KiteApplicationTests, saysWhichOptionIsWrongAndStartsNothing) {
  auto wrong = options();
  wrong.key = "";
  const auto started = KiteApplication::start(wrong);
  ASSERT_FALSE(started);
  EXPECT_EQ(started.error(), "KiteApplicationOptions.key is empty: give it here or in KITE_KEY");
  EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
  EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(KiteApplicationTests, takesKeyEndpointAndCAFileFromTheEnvironment) {
  auto short_ = options();
  ::setenv("KITE_KEY", "secret", 1);
  ::setenv("KITE_ENDPOINT", std::exchange(short_.endpoint, "").c_str(), 1);
  ::setenv("KITE_CA_FILE", std::exchange(short_.caFile, std::nullopt)->c_str(), 1);
  short_.key = "";
  start(short_).kite().trackUserAction("a", {});
  EXPECT_THAT(arrived({"a"}), SizeIs(1));
}

// Sessions

TEST_F(KiteApplicationTests, aWholeRunIsOneSession) {
  {
    const auto app = start();
    app.kite().trackUserAction("a", {});
    app.beginSession();
    app.endSession();
    app.setVisible(false);
    app.kite().trackUserAction("b", {});
  }
  EXPECT_THAT(sessionsAndActions(), ElementsAre("session_start", "a", "b", "session_end"));
  ASSERT_THAT(drained, SizeIs(1));
  EXPECT_EQ(drained[0].end, DrainEnd::delivered);
}

TEST_F(KiteApplicationTests, aHostMayBeginAndEndSessionsByHand) {
  {
    const auto app = start(optionsFor(Sessions::byHand));
    app.kite().trackUserAction("a", {});
    app.setVisible(true);
    app.endSession();
    app.beginSession();
    app.kite().trackUserAction("b", {});
    app.beginSession();
    app.endSession();
    app.endSession();
  }
  EXPECT_THAT(sessionsAndActions(), ElementsAre("a", "session_start", "b", "session_end",
                                                "session_start", "session_end"));
}

TEST_F(KiteApplicationTests, sessionsMayFollowTheWindows) {
  {
    const auto app = start(optionsFor(Sessions::byWindows));
    app.kite().trackCustomEvent("t", {});
    EXPECT_EQ(app.status().ledger.dropped.inBackground, 1U);
    app.setVisible(false);
    app.setVisible(true);
    app.setVisible(true);
    app.beginSession();
    app.kite().trackUserAction("a", {});
    app.setVisible(false);
    app.setVisible(true);
  }
  EXPECT_THAT(sessionsAndActions(),
              ElementsAre("session_start", "a", "session_end", "session_start", "session_end"));
}

TEST_F(KiteApplicationTests, asksTheMainThreadOnlyWhenSessionsFollowWindows) {
  std::atomic<int> posts = 0;
  const auto mainThread = Linux::attachedMainThread([&](const std::function<void()>&) { ++posts; });
  for (const auto sessions : {Sessions::byWindows, Sessions::wholeRun}) {
    posts = 0;
    auto given = optionsFor(sessions);
    given.mainThread = mainThread;
    const auto app = start(given);
    std::thread([&] { app.kite().trackCustomEvent("t", {}); }).join();
    EXPECT_EQ(posts > 0, sessions == Sessions::byWindows);
  }
}

// What a person sees

TEST_F(KiteApplicationTests, saysNothingWhenAllIsWell) {
  start().kite().trackUserAction("a", {});
  startAgain().kite().trackUserAction("a", {});
  EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(KiteApplicationTests, saysOnceThatUploadsFailAndOnceThatTheyWorkAgain) {
  answer = 500;
  const auto app = start();
  for (int i = 0; i < 3; ++i) EXPECT_EQ(app.drain(timeToDeliver).end, DrainEnd::refused);
  EXPECT_THAT(lines(), ElementsAre(StartsWith("[Kite] Uploads to " + origin() + " fail, ")));
  answer = 200;
  for (int i = 0; i < 2; ++i) app.drain(timeToDeliver);
  EXPECT_THAT(lines(),
              ElementsAre(testing::_, StartsWith("[Kite] Uploads to " + origin() + " work again")));
}

TEST_F(KiteApplicationTests, aSecondApplicationInAFolderIsToldAndDeliversAllTheSame) {
  const auto app = start();
  {
    const auto second = start();
    second.kite().trackUserAction("a", {});
    EXPECT_THAT(lines(), testing::Contains(testing::HasSubstr("memory only")));
    const auto report = second.drain({.persistWithin = Tempra::Duration(20)});
    EXPECT_EQ(report.persisted, 0U);
  }
  EXPECT_THAT(arrived({"a"}), SizeIs(1));
}

TEST_F(KiteApplicationTests, withDebugAllLinesOfTheLibraryAreSaid) {
  auto debug = options();
  debug.debug = true;
  start(debug);
  EXPECT_THAT(lines(), testing::Contains("[KITE] Events sent successfully to kite"));
}

// Uploads

TEST_F(KiteApplicationTests, tellsTheHostOfEveryUpload) {
  std::mutex uploadMutex;
  std::vector<UploadReport> uploads;
  auto given = options();
  given.onUpload = [&](const UploadReport& upload) {
    const std::scoped_lock guard(uploadMutex);
    uploads.push_back(upload);
  };
  answer = 503;
  {
    const auto app = start(given);
    app.drain(timeToDeliver);
    answer = 200;
    app.drain(timeToDeliver);
    EXPECT_EQ(app.status().lastUpload->statusCode, 200);
  }
  ASSERT_GE(uploads.size(), 2U);
  EXPECT_EQ(uploads.front().statusCode, 503);
  EXPECT_EQ(uploads.front().endpoint, origin());
  EXPECT_EQ(uploads.back().statusCode, 200);
  EXPECT_EQ(uploads.back().error, std::nullopt);
}

TEST_F(KiteApplicationTests, triesTheFallbacksInTheirTurn) {
  TLSTestServer second(authority.issue(), replies(200, "{}"));
  auto given = options();
  given.fallbackEndpoints = {second.url("/v4/events").absoluteString()};
  answer = 500;
  start(given).kite().trackUserAction("a", {});
  EXPECT_THAT(server.requests(), testing::Not(IsEmpty()));
  EXPECT_THAT(second.requests(), testing::Not(IsEmpty()));
  ASSERT_THAT(drained, SizeIs(1));
  EXPECT_EQ(drained[0].end, DrainEnd::delivered);
}

TEST_F(KiteApplicationTests, theStageIsToldToTheService) {
  start();
  EXPECT_EQ(server.requests().back().headerFields.at("kite-tester"), "false");
  auto staging = options();
  staging.stage = Linux::Stage::staging;
  start(staging);
  EXPECT_EQ(server.requests().back().headerFields.at("kite-tester"), "true");
}

// The end, and the next run

TEST_F(KiteApplicationTests, aMovedApplicationGoesOnAndEndsOnce) {
  {
    auto app = start();
    const KiteApplication moved = std::move(app);
    moved.kite().trackUserAction("a", {});
  }
  EXPECT_THAT(sessionsAndActions(), ElementsAre("session_start", "a", "session_end"));
  EXPECT_THAT(drained, SizeIs(1));
}

TEST_F(KiteApplicationTests, anAssignmentEndsTheApplicationOfBefore) {
  auto second = options();
  second.dataFolder = folder.path() / "second";
  second.secretsFolder = folder.path() / "second-secrets";
  auto app = start();
  app.kite().trackUserAction("a", {});
  app = start(second);
  EXPECT_THAT(arrived({"a", "session_end"}), ElementsAre("a", "session_end"));
  EXPECT_THAT(drained, SizeIs(1));
  app.kite().trackUserAction("b", {});
}

TEST_F(KiteApplicationTests, withoutTimeToDeliverTheEndLeavesEverythingToTheNextRun) {
  answer = 500;
  auto short_ = options();
  short_.drainLimits = {.persistWithin = Tempra::Duration(20)};
  start(short_).kite().trackUserAction("a", {});
  ASSERT_THAT(drained, SizeIs(1));
  EXPECT_EQ(drained[0].end, DrainEnd::persisted);
  EXPECT_EQ(drained[0].inMemory, 0U);
  const auto app = startAgain();
  EXPECT_GE(app.status().onDisk, drained[0].persisted);
  answer = 200;
  app.drain(timeToDeliver);
  EXPECT_THAT(arrived({"a"}), SizeIs(1));
}

TEST_F(KiteApplicationTests, whatIsRecordedAfterTheEndIsKeptForTheNextRun) {
  {
    const auto app = start(options());
    app.kite().trackUserAction("before", {});
    app.end();
    ASSERT_THAT(drained, SizeIs(1));
    EXPECT_EQ(drained[0].end, DrainEnd::delivered);
    answer = 500;
    app.kite().trackUserAction("after", {});
  }
  EXPECT_THAT(drained, SizeIs(1));
  answer = 200;
  startAgain().drain(timeToDeliver);
  EXPECT_THAT(arrived({"before", "after"}), ElementsAre("before", "after"));
}

TEST_F(KiteApplicationTests, theHostMayEndTheProcessWhenItIsToldOfTheEnd) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto endInside = [this] {
    auto given = options();
    given.drainAtExit = true;
    given.onDrained = [](const DrainReport&) { std::exit(7); };
    start(given).kite().trackUserAction("a", {});
  };
  EXPECT_EXIT(endInside(), testing::ExitedWithCode(7), "");
}

// The heartbeat of the library reads the session all the time, too.
TEST_F(KiteApplicationTests, readersOfTheSessionBeginNoneWhileWindowsComeAndGo) {
  constexpr int changes = 100;
  {
    const auto app = start(optionsFor(Sessions::byWindows));
    std::atomic<bool> isOver = false;
    std::thread reader([&] {
      while (!isOver) (void)app.kite().currentSessionId();
    });
    for (int i = 0; i < changes; ++i) app.setVisible(i % 2 == 0);
    isOver = true;
    reader.join();
  }
  const auto found = sessionsAndActions();
  EXPECT_EQ(std::ranges::count(found, "session_start"), changes / 2);
  EXPECT_EQ(std::ranges::count(found, "session_end"), changes / 2);
}

TEST_F(KiteApplicationTests, theLedgerGoesOnInTheNextRun) {
  answer = 500;
  Ledger first;
  {
    const auto app = start();
    for (int i = 0; i < 5; ++i) app.kite().trackUserAction("a", {});
    app.kite().setAnalyticsTrackingConsent(false);
    app.kite().setProfilingTrackingConsent(false);
    for (int i = 0; i < 7; ++i) app.kite().trackUserAction("forbidden", {});
    first = app.status().ledger;
    EXPECT_EQ(first.dropped.noConsent, 7U);
    EXPECT_EQ(first.tracked, first.pending + 7);
  }
  answer = 200;
  const auto app = startAgain();
  const auto second = app.status().ledger;
  EXPECT_GT(second.tracked, first.tracked) << "the ends and beginnings of sessions";
  app.drain(timeToDeliver);
  const auto delivered = app.status().ledger;
  EXPECT_EQ(delivered.dropped, first.dropped);
  EXPECT_EQ(delivered.delivered + 7, delivered.tracked);
  EXPECT_GE(delivered.delivered, first.pending);
}

}  // namespace
}  // namespace kite::test
