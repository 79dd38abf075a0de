#include "EndToEnd/Host.h"

#include <gmock/gmock.h>

#include <csignal>

namespace kite::test {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

/// A collector whose lines are read one by one.
class Inspected {
 public:
  explicit Inspected(const Arguments& more = {"--inspect"})
      : process(arguments(more), {.errors = folder / "errors"}) {
    url = partOf(process.receive(), "/url");
    url = url.substr(1, url.size() - 2);
  }

  std::string page() {
    const auto text = partOf(process.receive(), "/url");
    return text.substr(1, text.size() - 2);
  }

  /// Lets an application tell of one action and go.
  void deliver(const std::string& action) const {
    const Application application;
    Host host(application, url, folder / "tls/ca.pem");
    host.start();
    host.track(action);
    host.ask(R"({"op":"drain","deliverWithin":20})");
    host.quit();
  }

  Folder folder;
  Process process;
  std::string url;

 private:
  Arguments arguments(const Arguments& more) const {
    Arguments all{"collect",       "--key",       "secret", "--db", folder / "events.db",
                  "--self-signed", folder / "tls"};
    all.insert(all.end(), more.begin(), more.end());
    return all;
  }
};

TEST(Inspector, isWaitedFromTheCommandLine) {
  Inspected collector;
  const auto page = collector.page();
  collector.deliver("buy");
  const auto met = run({"expect", "--url", page, "--match", "type:UserAction name:buy"});
  EXPECT_EQ(met.status, 0) << met.errors;
  EXPECT_THAT(met.output, StartsWith("1 of 1 events match after "));
}

TEST(Inspector, saysOnTheCommandLineWhatCameNearest) {
  Inspected collector;
  const auto page = collector.page();
  collector.deliver("bought");
  const auto missed = run({"expect", "--url", page, "--match", "type:UserAction name:buy",
                           "--count", "3", "--within", "0"});
  EXPECT_EQ(missed.status, 1);
  EXPECT_THAT(missed.output, StartsWith("0 of 3 events match after "));
  EXPECT_THAT(missed.output, HasSubstr("\n  UserAction \"bought\" "));
  EXPECT_THAT(missed.output, HasSubstr(": name is \"bought\", wanted \"buy\"\n"));
  EXPECT_EQ(missed.errors, "");
}

TEST(Inspector, letsInWhoHasTheTokensFile) {
  const Folder folder;
  const std::string file = folder / "token";
  Inspected collector({"--inspect", "127.0.0.1:0", "--token-file", file});
  const auto page = collector.page();
  const auto root = page.substr(0, page.find("/?"));
  EXPECT_THAT(page, EndsWith("token=" + contents(file).substr(0, 48)));
  EXPECT_EQ(
      run({"expect", "--url", root, "--token-file", file, "--match", "a", "--within", "0"}).status,
      1);
  const auto stranger = run({"expect", "--url", root + "/?token=other", "--match", "a"});
  EXPECT_EQ(stranger.status, 1);
  EXPECT_THAT(stranger.errors,
              HasSubstr("the inspector answers 401: the token is missing or wrong"));
}

TEST(Inspector, saysWhichTermOfAnExpectationIsWrong) {
  Inspected collector;
  const auto wrong = run({"expect", "--url", collector.page(), "--match", "nme:buy"});
  EXPECT_EQ(wrong.status, 1);
  EXPECT_THAT(wrong.errors, HasSubstr("nme:buy: there is no such key"));
}

TEST(Inspector, isFollowedByTheAddressOfTheMetrics) {
  Inspected collector({"--inspect", "--metrics"});
  EXPECT_THAT(collector.page(), HasSubstr("/?token="));
  const auto line = collector.process.receive();
  EXPECT_EQ(partOf(line, "/event"), R"("metrics")");
  EXPECT_THAT(partOf(line, "/url"),
              AllOf(StartsWith(R"("http://127.0.0.1:)"), EndsWith(R"(/metrics")")));
}

TEST(Inspector, endsACollectorThatHasWhatItExpects) {
  Inspected collector({"--expect", "3", "--timeout", "60"});
  collector.deliver("buy");
  EXPECT_EQ(collector.process.wait(), 0) << contents(collector.folder / "errors");
  EXPECT_THAT(collector.process.receiveAll(),
              HasSubstr(R"({"event":"summary","ok":true,"expected":3,)"));
}

TEST(Inspector, endsACollectorThatHasNotWhatItExpectsInTime) {
  Inspected collector({"--expect", "1000", "--timeout", "0.1"});
  EXPECT_EQ(collector.process.wait(), 1);
  EXPECT_THAT(collector.process.receiveAll(),
              HasSubstr(R"({"event":"summary","ok":false,"expected":1000,"stored":0,)"));
}

TEST(Inspector, showsTheDayOfADemoUntilItIsInterrupted) {
  const Folder folder;
  Process demo({"demo", "--events", "20", "--inspect", "--state", folder / "demo"},
               {.errors = folder / "errors"});
  std::string line;
  while (line.find("until Ctrl-C") == line.npos) line = demo.receive();
  const auto begin = line.find("http://");
  const auto page = line.substr(begin, line.find(' ', begin) - begin);
  const auto met = run({"expect", "--url", page, "--match", "type:Install", "--count", "2"});
  EXPECT_EQ(met.status, 0) << met.output << met.errors;
  demo.signal(SIGINT);
  EXPECT_EQ(demo.wait(), 0);
}

}  // namespace
}  // namespace kite::test
