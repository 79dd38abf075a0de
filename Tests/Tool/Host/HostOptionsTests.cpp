#include "Host/HostOptions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <CLI/CLI.hpp>

namespace kite::tool {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;

HostOptions parse(std::vector<std::string> arguments) {
  CLI::App app;
  const auto options = addHostOptions(app);
  std::reverse(arguments.begin(), arguments.end());
  app.parse(arguments);
  return *options;
}

std::string complaint(std::vector<std::string> arguments) {
  try {
    (void)parse(std::move(arguments));
  } catch (const CLI::ParseError& error) {
    return error.what();
  }
  return "";
}

TEST(HostOptions, haveDefaults) {
  const auto options = parse({});
  EXPECT_FALSE(options.state || options.endpoint || options.caFile || options.storefront);
  EXPECT_FALSE(options.locale || options.timeZone || options.attribution || options.script);
  EXPECT_THAT(options.secondaries, IsEmpty());
  EXPECT_EQ(options.kitbag, Kitbag{});
  EXPECT_FALSE(options.installedBeforeKite || options.hasManualSessions || options.isNoop);
  EXPECT_FALSE(options.syncsOnSessionEnd || options.startsInBackground);
}

TEST(HostOptions, takePaths) {
  const auto options = parse(
      {"--state", "a b", "--ca-file", "c.pem", "--attribution", "d.json", "script file.jsonl"});
  EXPECT_EQ(options.state, "a b");
  EXPECT_EQ(options.caFile, "c.pem");
  EXPECT_EQ(options.attribution, "d.json");
  EXPECT_EQ(options.script, "script file.jsonl");
}

TEST(HostOptions, takeEndpoints) {
  const auto options =
      parse({"--endpoint", "https://a.test/v4/events", "--secondary", "https://b.test/v4/events",
             "--secondary", "https://c.test/v4/events"});
  EXPECT_EQ(options.endpoint->absoluteString(), "https://a.test/v4/events");
  EXPECT_THAT(options.secondaries, ElementsAre(*URL::parse("https://b.test/v4/events"),
                                               *URL::parse("https://c.test/v4/events")));
}

TEST(HostOptions, takeTheApplicationsDescription) {
  const auto options =
      parse({"--key", "k", "--lumo-id", "app", "--app-version", "1.2", "--bundle-version", "34",
             "--channel", "testFlight", "--installed-before-kite", "--storefront", "143:NZ"});
  EXPECT_EQ(options.key, "k");
  EXPECT_EQ(options.lumoID, "app");
  EXPECT_EQ(options.kitbag, (Kitbag{"1.2", "34", DistributionChannel::testFlight}));
  EXPECT_TRUE(options.installedBeforeKite);
  EXPECT_EQ(options.storefront, (Storefront{"143", "NZ"}));
}

TEST(HostOptions, takeEveryChannel) {
  const auto channel = [](const char* name) {
    return parse({"--channel", name}).kitbag.distributionChannel;
  };
  EXPECT_EQ(channel("debug"), DistributionChannel::debug);
  EXPECT_EQ(channel("testFlight"), DistributionChannel::testFlight);
  EXPECT_EQ(channel("appStore"), DistributionChannel::appStore);
}

TEST(HostOptions, takeTheSessionModes) {
  const auto options =
      parse({"--sessions", "manual", "--sync-on-session-end", "--start-in-background", "--noop"});
  EXPECT_TRUE(options.hasManualSessions);
  EXPECT_TRUE(options.syncsOnSessionEnd);
  EXPECT_TRUE(options.startsInBackground);
  EXPECT_TRUE(options.isNoop);
  EXPECT_FALSE(parse({"--sessions", "automatic"}).hasManualSessions);
}

TEST(HostOptions, takeTheUser) {
  const auto options = parse({"--locale", "en_NZ", "--time-zone", "Pacific/Auckland",
                              "--preferred-language", "en-NZ", "--preferred-language", "mi-NZ",
                              "--custom-id", "crew=a=b", "--custom-id", "team=7"});
  EXPECT_EQ(options.locale, "en_NZ");
  EXPECT_EQ(options.timeZone, "Pacific/Auckland");
  EXPECT_THAT(options.preferredLanguages, ElementsAre("en-NZ", "mi-NZ"));
  EXPECT_THAT(options.customIDs, ElementsAre(Pair("crew", "a=b"), Pair("team", "7")));
}

TEST(HostOptions, leaveThePositionalArgumentToTheScript) {
  const auto options = parse({"--preferred-language", "en", "script"});
  EXPECT_THAT(options.preferredLanguages, ElementsAre("en"));
  EXPECT_EQ(options.script, "script");
}

TEST(HostOptions, refuseWhatTheyDoNotUnderstand) {
  EXPECT_THAT(complaint({"--endpoint", "not a url"}), HasSubstr("--endpoint"));
  EXPECT_THAT(complaint({"--secondary", "/v4/events"}), HasSubstr("--secondary"));
  EXPECT_THAT(complaint({"--channel", "beta"}), HasSubstr("--channel"));
  EXPECT_THAT(complaint({"--sessions", "never"}), HasSubstr("--sessions"));
  EXPECT_THAT(complaint({"--storefront", "143441"}), HasSubstr("ID:CC"));
  EXPECT_THAT(complaint({"--custom-id", "=x"}), HasSubstr("NAME=VALUE"));
  EXPECT_EQ(complaint({"--time-zone", "Mars/Olympus_Mons"}),
            "--time-zone: the system knows no time zone \"Mars/Olympus_Mons\"");
  EXPECT_THAT(complaint({"--wings"}), HasSubstr("--wings"));
  EXPECT_THAT(complaint({"one", "two"}), HasSubstr("two"));
}

TEST(HostOptions, sayWhatIsWrongWithAnEndpointWithoutItsPassword) {
  for (const std::string option : {"--endpoint", "--secondary"}) {
    EXPECT_EQ(complaint({option, "https://user:secret@h:x/"}),
              option + ": not an absolute URL: its port is not a number up to 65535");
    EXPECT_EQ(complaint({option, "http://user:secret@h:80/v4/events?token=private"}),
              option + ": http://h:80 is refused: events go over HTTPS only");
  }
}

}  // namespace
}  // namespace kite::tool
