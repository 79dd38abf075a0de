#include "EndToEnd/Host.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <csignal>

namespace kite::test {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

MATCHER(isOneLine, "") { return arg.size() > 1 && arg.find('\n') == arg.size() - 1; }

void expectUsageError(const Arguments& arguments) {
  const auto result = run(arguments);
  EXPECT_EQ(result.status, 2) << testing::PrintToString(arguments);
  EXPECT_THAT(result.errors, AllOf(isOneLine(), StartsWith("kite: ")));
  EXPECT_EQ(result.output, "");
}

TEST(Command, saysWhatIsWrongWithItsUsageInOneLine) {
  expectUsageError({});
  expectUsageError({"fly"});
  expectUsageError({"host"});
  expectUsageError({"host", "--key", "k", "--sessions", "never"});
  expectUsageError({"host", "--key", "k", "--endpoint", "nowhere"});
  expectUsageError({"host", "--key", "k", "--endpoint", "http://127.0.0.1/v4/events"});
  expectUsageError({"host", "--key", "k", "--secondary", "http://127.0.0.1/v4/events"});
  expectUsageError({"host", "--key", "k", "--wings"});
  expectUsageError({"queue"});
  expectUsageError({"store", "--state", "x"});
  expectUsageError({"store", "--state", "x", "get"});
  expectUsageError({"store", "--state", "x", "put", "k", "f"});
  expectUsageError({"store", "--state", "x", "put", "k", "f", "--as", "text"});
  expectUsageError({"collect", "--key", "k"});
  expectUsageError({"collect", "--key", "k", "--db", "d"});
  expectUsageError({"collect", "--key", "k", "--db", "d", "--self-signed", "t", "--inspect", "x"});
  expectUsageError({"collect", "--key", "k", "--db", "d", "--self-signed", "t", "--open"});
  expectUsageError({"collect", "--key", "k", "--db", "d", "--self-signed", "t", "--timeout", "1"});
  expectUsageError({"expect", "--url", "x", "--match", "a"});
  expectUsageError({"expect", "--url", "http://127.0.0.1:1", "--match", "a"});
  expectUsageError({"expect", "--url", "http://127.0.0.1:1/?token=t"});
  expectUsageError(
      {"expect", "--url", "http://127.0.0.1:1/?token=t", "--match", "a", "--count", "0"});
  expectUsageError({"demo", "--events", "none"});
  expectUsageError({"host", "--key", "k", "--time-zone", "Mars/Olympus_Mons"});
}

TEST(Command, helpsOnRequest) {
  for (const auto* command : {"demo", "host", "collect", "expect", "report", "queue", "store"}) {
    const auto result = run({command, "--help"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.output, HasSubstr("--help"));
    EXPECT_EQ(result.errors, "");
    EXPECT_THAT(run({"--help"}).output, HasSubstr(command));
  }
}

TEST(Command, failsWithOneLine) {
  const Folder folder;
  const auto expectFailure = [](const Arguments& arguments) {
    const auto result = run(arguments);
    EXPECT_EQ(result.status, 1) << testing::PrintToString(arguments);
    EXPECT_THAT(result.errors, isOneLine());
  };
  expectFailure({"queue", "--state", folder / "nowhere"});
  expectFailure({"store", "--state", folder / "nowhere", "keys"});
  expectFailure({"host", "--key", "k", folder / "no script"});
  expectFailure({"host", "--key", "k", "--attribution", folder / "nowhere"});
  expectFailure({"demo", "--state", writeFile(folder / "file", "")});
}

TEST(Command, readsAScriptFromAFile) {
  const Folder folder;
  const auto script = writeFile(folder / "script", "{\"op\":\"start\"}\n{\"op\":\"keychainId\"}");
  const auto result = run({"host", "--noop", script});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "{\"ok\":true}\n{\"ok\":true,\"value\":\"\"}\n");
}

TEST(Command, answersEveryLineAndGoesOnAfterBadOnes) {
  const std::string tooLong(1 << 20, 'x');
  const auto result = run({"host", "--noop"}, "nonsense\n" + tooLong + "x\n\n{\"op\":\"start\"}");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(occurrences(result.output, "\n"), 4);
  EXPECT_EQ(occurrences(result.output, R"({"ok":false,"error":)"), 3);
  EXPECT_THAT(result.output, EndsWith("{\"ok\":true}\n"));
}

TEST(Command, leavesWhatFollowsQuitAlone) {
  const auto result = run({"host", "--noop"}, "{\"op\":\"quit\"}\n{\"op\":\"start\"}");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "{\"ok\":true}\n");
}

TEST(Command, readsAndWritesAStore) {
  const Folder folder;
  const Arguments store{"store", "--state", folder / "a state"};
  const auto on = [&](Arguments arguments) {
    arguments.insert(arguments.begin(), store.begin(), store.end());
    return run(arguments);
  };
  const std::string raw("\0\xff\n", 3);
  EXPECT_EQ(on({"put", "j", writeFile(folder / "1", "{\"a\": 1.50}"), "--as", "json"}).status, 0);
  EXPECT_EQ(on({"put", "n", writeFile(folder / "2", "37"), "--as", "number"}).status, 0);
  EXPECT_EQ(on({"put", "d", writeFile(folder / "3", raw), "--as", "data"}).status, 0);
  EXPECT_EQ(on({"put", "p",
                writeFile(folder / "4",
                          "<plist version=\"1.0\"><dict><key>v</key><string>1.0</string>"
                          "<key>t</key><real>2.5</real><key>b</key><true/></dict></plist>"),
                "--as", "plist"})
                .status,
            0);
  EXPECT_EQ(on({"keys"}).output, "d\nj\nn\np\n");
  EXPECT_EQ(on({"get", "j"}).output, "{\"a\": 1.50}");
  EXPECT_EQ(on({"get", "n"}).output, "37.0\n");
  EXPECT_EQ(on({"get", "d"}).output, raw);
  EXPECT_EQ(on({"get", "p"}).output, "{\"b\":true,\"t\":2.5,\"v\":\"1.0\"}\n");
  EXPECT_EQ(on({"delete", "j"}).status, 0);
  EXPECT_EQ(on({"get", "j"}).status, 1);
  EXPECT_EQ(on({"keys"}).output, "d\nn\np\n");
}

TEST(Command, readsAndWritesSecrets) {
  const Folder folder;
  const auto state = folder / "state";
  EXPECT_EQ(run({"store", "--state", state, "--secrets", "put", "s",
                 writeFile(folder / "1", "archive"), "--as", "data"})
                .status,
            0);
  EXPECT_EQ(run({"store", "--state", state, "--secrets", "get", "s"}).output, "archive");
  EXPECT_EQ(run({"store", "--state", state, "--secrets", "keys"}).output, "s\n");
  const auto check = run({"store", "--state", state, "--secrets", "check"});
  EXPECT_EQ(check.status, 0);
  EXPECT_THAT(check.output, HasSubstr("secrets.values.log  "));
  EXPECT_THAT(check.output, Not(HasSubstr("damaged")));
  const auto number = run({"store", "--state", state, "--secrets", "put", "n",
                           writeFile(folder / "2", "1"), "--as", "number"});
  EXPECT_EQ(number.status, 1);
  EXPECT_THAT(number.errors, isOneLine());
}

TEST(Command, readsTheQueueOfALiveHostButDoesNotWriteIntoItsStore) {
  const ClosedPort closed;
  Application application;
  Host host(application, closed.url(), "/dev/null", {"--start-in-background"});
  host.start();
  host.track("waiting");
  EXPECT_TRUE(eventually([&] { return queued(application.state).size() == 3; }));
  const auto result = run({"store", "--state", application.state, "put", "k",
                           writeFile(application.folder / "1", "1"), "--as", "number"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.errors, isOneLine());
  EXPECT_EQ(run({"store", "--state", application.state, "get", "kite_pending_events"}).output,
            run({"queue", "--state", application.state}).output);
}

TEST(Command, printsAnEmptyQueueWhenNothingWasEverQueued) {
  const Folder folder;
  const auto state = folder / "state";
  run({"store", "--state", state, "put", "k", writeFile(folder / "1", "1"), "--as", "number"});
  EXPECT_EQ(run({"queue", "--state", state}).output, "[]");
}

TEST(Command, stopsWithTheLibraryWhenItIsMisused) {
  const Folder folder;
  const auto result = run({"host", "--key", "k", "--state", folder / "state"},
                          R"({"op":"addUserInfo","key":"a","value":1})");
  EXPECT_EQ(result.status, -SIGABRT);
  EXPECT_THAT(result.errors, HasSubstr("Fatal error: Call start before using Kite: file "));
}

TEST(Command, endsWhenNobodyReadsItsAnswers) {
  const Folder folder;
  Process process({"host", "--noop"}, {.output = "/dev/full", .errors = folder / "errors"});
  process.send(R"({"op":"start"})");
  EXPECT_EQ(process.wait(), 1);
  EXPECT_THAT(contents(folder / "errors"), isOneLine());
}

TEST(Command, takesTheHostsOptionsToTheLibrary) {
  const Folder folder;
  const auto attribution = writeFile(folder / "ads", R"({"campaign":7,"clicked":true})");
  const auto result =
      run({"host",
           "--key",
           "k",
           "--state",
           folder / "state",
           "--app-version",
           "1.2",
           "--bundle-version",
           "34",
           "--installed-before-kite",
           "--locale",
           "en_NZ",
           "--time-zone",
           "Pacific/Auckland",
           "--preferred-language",
           "mi-NZ",
           "--preferred-language",
           "en-NZ",
           "--attribution",
           attribution,
           "--endpoint",
           ClosedPort().url()},
          "{\"op\":\"start\"}\n{\"op\":\"userInfo\"}\n{\"op\":\"installedBeforeKite\"}");
  EXPECT_EQ(result.status, 0) << result.errors;
  for (const auto* expected :
       {R"("app_version":"1.2")", R"("bundle_version":"34")", R"("locale":"en_NZ")",
        R"("country":"NZ")", R"("app_language":"en")", R"("name":"Pacific/Auckland")",
        R"("all_languages":["mi-NZ","en-NZ"])", R"("language":"mi-NZ")",
        R"("search_ads":{"campaign":7,"clicked":true})"})
    EXPECT_THAT(result.output, HasSubstr(expected));
  EXPECT_THAT(result.output, EndsWith("{\"ok\":true,\"value\":true}\n"));
}

TEST(Command, drivesSessionsByHand) {
  const Collector collector;
  Application application;
  Host host(application, collector, {"--sessions", "manual", "--storefront", "143461:NZ"});
  host.start();
  host.call(R"({"op":"triggerSessionStart"})");
  host.call(R"({"op":"triggerSessionEnd"})");
  host.call(R"({"op":"triggerSessionStart"})");
  EXPECT_TRUE(eventually([&] { return collector.events().size() == 5; }));
  const auto events = collector.events();
  EXPECT_TRUE(events.at(2).has(R"("subtype":"session_start")"));
  EXPECT_TRUE(events.at(3).has(R"("subtype":"session_end")"));
  EXPECT_TRUE(events.at(4).has(R"("subtype":"session_start")"));
  for (std::size_t at = 1; at < 5; ++at)
    EXPECT_TRUE(events.at(at).has(R"("storefront_country_code":"NZ")"));
}

}  // namespace
}  // namespace kite::test
