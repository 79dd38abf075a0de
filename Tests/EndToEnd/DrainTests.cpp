#include "EndToEnd/Host.h"

#include <gmock/gmock.h>

#include <string>

namespace kite::test {
namespace {

using testing::HasSubstr;
using testing::SizeIs;

/// Sends a drain and gives its report, and how long it took.
struct Drained {
  std::string report;
  double seconds;
};
Drained drain(Host& host, double persistWithin, double deliverWithin) {
  const double begin = now();
  const auto answer = host.ask(R"({"op":"drain","persistWithin":)" + std::to_string(persistWithin) +
                               R"(,"deliverWithin":)" + std::to_string(deliverWithin) + "}");
  return {partOf(answer, "/value"), now() - begin};
}

std::string status(Host& host) { return partOf(host.ask(R"({"op":"status"})"), "/value"); }

TEST(Drain, putsEverythingOnDiskAndDeliversNothingWithoutTime) {
  const Application application;
  const ClosedPort nowhere;
  const Collector certified;
  Host host(application, nowhere.url(), certified.ca());
  host.start();
  for (int i = 0; i < 40; ++i) host.track("buy");
  const auto drained = drain(host, 5, 0);
  expectParts(
      drained.report,
      {{"/delivered", "0"}, {"/persisted", "43"}, {"/inMemory", "0"}, {"/end", "\"persisted\""}});
  EXPECT_THAT(queued(application.state), SizeIs(43));
  expectParts(status(host), {{"/tracked", "43"}, {"/pending", "43"}, {"/onDisk", "43"}});
}

TEST(Drain, deliversWhatIsPendingBatchByBatchAndKeepsNothing) {
  const Application application;
  const Collector collector;
  Host host(application, collector);
  host.start();
  for (int i = 0; i < 1100; ++i) host.process.send(Host::action("buy"));
  for (int i = 0; i < 1100; ++i) host.process.receive();
  const auto drained = drain(host, 5, 30);
  expectParts(drained.report, {{"/persisted", "0"}, {"/inMemory", "0"}, {"/end", "\"delivered\""}});
  EXPECT_THAT(collector.events(), SizeIs(1103));
  EXPECT_THAT(queued(application.state), SizeIs(0));
  expectParts(status(host), {{"/tracked", "1103"},
                             {"/pending", "0"},
                             {"/delivered", "1103"},
                             {"/lastUpload/status", "200"},
                             {"/lastUpload/error", "null"}});
}

TEST(Drain, keepsItsDeadlinesAgainstAServerThatNeverAnswers) {
  const Application application;
  const Collector certified;
  const SilentPort silent;
  Host host(application, silent.url(), certified.ca());
  host.start();
  host.track("buy");
  for (int i = 0; i < 3; ++i) {
    const auto drained = drain(host, 0.2, 0.5);
    expectParts(drained.report,
                {{"/delivered", "0"}, {"/persisted", "4"}, {"/end", "\"deadline\""}});
    EXPECT_LT(drained.seconds, 0.2 + 0.5 + 0.3);  // the pipe and the machine take their part
  }
}

TEST(Drain, endsWhenNoEndpointAnswers) {
  const Application application;
  const ClosedPort nowhere;
  const Collector certified;
  Host host(application, nowhere.url(), certified.ca());
  host.start();
  const auto drained = drain(host, 5, 30);
  expectParts(drained.report, {{"/persisted", "3"}, {"/end", "\"unreachable\""}});
  EXPECT_LT(drained.seconds, 10);
  EXPECT_THAT(partOf(status(host), "/lastUpload/error"), HasSubstr("127.0.0.1"));
}

TEST(Drain, endsWhenItsEventsAreRefused) {
  Application application;
  const Collector collector;
  application.key = "another";
  Host host(application, collector);
  host.start();
  expectParts(drain(host, 5, 30).report, {{"/persisted", "3"}, {"/end", "\"refused\""}});
  expectParts(status(host), {{"/lastUpload/status", "400"},
                             {"/lastUpload/error", "\"Invalid Wicket signature\""}});
}

TEST(Drain, uploadsInTheBackgroundWhereNothingElseDoes) {
  const Application application;
  const Collector collector;
  Host host(application, collector, {"--start-in-background"});
  host.start();
  host.enterForeground();
  host.enterBackground();
  ASSERT_TRUE(eventually([&] { return status(host).find("\"pending\":0") == std::string::npos; }));
  expectParts(drain(host, 5, 30).report, {{"/end", "\"delivered\""}});
  host.track("in the background");
  expectParts(drain(host, 5, 30).report, {{"/delivered", "1"}, {"/end", "\"delivered\""}});
}

TEST(Drain, ofAHostThatHasNotStartedSaysSo) {
  const Application application;
  const Collector collector;
  Host host(application, collector);
  host.track("too early");
  expectParts(drain(host, 5, 5).report, {{"/end", "\"notRunning\""}});
  expectParts(status(host), {{"/tracked", "1"}, {"/dropped/notStarted", "1"}});
  Host inert(application, collector, {"--noop"});
  expectParts(drain(inert, 5, 5).report, {{"/end", "\"notRunning\""}});
}

TEST(Drain, refusesTimesThatAreNone) {
  const Application application;
  const Collector collector;
  Host host(application, collector);
  EXPECT_THAT(host.ask(R"({"op":"drain","persistWithin":-1})"), HasSubstr("persistWithin"));
  EXPECT_THAT(host.ask(R"({"op":"drain","deliverWithin":"soon"})"), HasSubstr("deliverWithin"));
}

TEST(Summary, tellsFromOutsideWhatIsOnDisk) {
  const Application application;
  const ClosedPort nowhere;
  const Collector certified;
  Host host(application, nowhere.url(), certified.ca());
  host.start();
  drain(host, 5, 0);
  const auto summary = run({"queue", "--state", application.state, "--summary"});
  EXPECT_EQ(summary.status, 0) << summary.errors;
  expectParts(summary.output, {{"/onDisk", "3"}, {"/ledger", "null"}});
  EXPECT_GE(numberIn(summary.output, "/oldestAge"), 0);
}

}  // namespace
}  // namespace kite::test
