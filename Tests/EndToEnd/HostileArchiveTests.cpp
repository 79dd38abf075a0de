#include "EndToEnd/Host.h"
#include "EndToEnd/LegacyArchives.h"
#include "EndToEnd/StoredValues.h"

#include <gmock/gmock.h>

#include <csignal>

namespace kite::test {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* userInfoEntry = "USUserInfo";
constexpr const char* installEntry = "VLInstallManager";

/// What a sound archive of both kinds might hold.
constexpr const char* soundEntries =
    R"("age": 37, "app_version": "0.9", "Last-App-Version": "0.8", "Installed-Before-Kite": true)";

/// A keyed archive with the sound entries and others.
std::string archiveWith(const std::string& others) {
  return keyedArchive("{" + std::string(soundEntries) + ", " + others + "}");
}
std::string soundArchive() { return keyedArchive("{" + std::string(soundEntries) + "}"); }

std::string half(const std::string& text) { return text.substr(0, text.size() / 2); }
std::string repeated(const std::string& text, int count) {
  std::string result;
  for (int at = 0; at < count; ++at) result += text;
  return result;
}

/// Arrays of which each holds the next one twice. The dictionary and the key are objects 1 and 2.
std::string doubling(int levels) {
  std::string inner = "[]";
  for (int level = levels; level > 0; --level)
    inner = "[" + inner + R"(, {"$reference": )" + std::to_string(level + 3) + "}]";
  return R"({"a": )" + inner + "}";
}

struct HostileArchive {
  const char* name;
  std::string (*bytes)();

  friend void PrintTo(const HostileArchive& archive, std::ostream* out) { *out << archive.name; }
};

const HostileArchive hostileArchives[] = {
    {"cutInHalf", [] { return half(soundArchive()); }},
    {"cutByAByte", [] { return soundArchive().substr(0, soundArchive().size() - 1); }},
    {"empty", [] { return std::string(); }},
    {"notAPropertyList", [] { return std::string(4096, '?'); }},
    {"notAnArchive", [] { return propertyList("{" + std::string(soundEntries) + "}"); }},
    {"arrayAsItsRoot", [] { return keyedArchive("[{" + std::string(soundEntries) + "}]"); }},
    {"otherClassAsItsRoot", [] { return keyedArchive(R"({"$instance": "NSColor"})"); }},
    {"numberAsAKey",
     [] { return keyedArchive(R"({"$entries": [["age", 37], ["app_version", "0.9"], [7, 1]]})"); }},
    {"holdingItself", [] { return archiveWith(R"("self": {"$reference": 1})"); }},
    {"holdingItselfInAnArray", [] { return archiveWith(R"("all": [{"$reference": 1}])"); }},
    {"missingAnObject", [] { return archiveWith(R"("lost": {"$reference": 999999})"); }},
    {"deep", [] { return archiveWith(R"("deep": )" + repeated("[", 2000) + repeated("]", 2000)); }},
    {"doubling", [] { return keyedArchive(doubling(40)); }},
};

/// An application in the background, whose events are on disk at once. It finds something hostile
/// in the place of what an earlier version has left.
class HostileFindTests : public testing::Test {
 protected:
  /// The two events of a first launch.
  std::vector<Event> firstEvents() {
    EXPECT_TRUE(eventually([&] { return queued(application.state).size() == 2; }));
    auto events = queued(application.state);
    events.resize(2);
    return events;
  }

  const ClosedPort closed;
  Application application;
  const Arguments inBackground{"--start-in-background"};
  StoredValues app = StoredValues::ofApp(application);
  StoredValues secrets = StoredValues::ofSecrets(application);
};

class HostileArchiveTests : public HostileFindTests,
                            public testing::WithParamInterface<HostileArchive> {};

INSTANTIATE_TEST_SUITE_P(Each, HostileArchiveTests, testing::ValuesIn(hostileArchives),
                         [](const auto& archive) { return archive.param.name; });

TEST_P(HostileArchiveTests, countsForNothing) {
  const auto archive = GetParam().bytes();
  secrets.put(userInfoEntry, archive, "data");
  secrets.put(installEntry, archive, "data");

  Host host(application, closed.url(), "/dev/null", inBackground);
  host.start();
  EXPECT_EQ(partOf(host.read("userInfo"), "/age"), "");
  const auto events = firstEvents();
  expectParts(events[0].data,
              {{"/old_user_info", "{}"}, {"/new_user_info/app_version", R"("1.0")"}});
  expectParts(events[1].data, {{"/new_app_version", R"("1.0")"},
                               {"/old_app_version", ""},
                               {"/installed_before_kite", "false"}});
  host.quit();

  EXPECT_EQ(secrets.get(userInfoEntry), archive);
  EXPECT_EQ(secrets.get(installEntry), archive);
  expectParts(secrets.get("Kite-Install-Manager").value_or(""), {{"/appVersion", R"("1.0")"}});
  expectParts(secrets.get("Kite-User-Info").value_or(""), {{"/data/app_version", R"("1.0")"}});
}

TEST_F(HostileFindTests, wouldCountIfTheyWereSound) {
  secrets.put(userInfoEntry, soundArchive(), "data");
  secrets.put(installEntry, soundArchive(), "data");
  Host host(application, closed.url(), "/dev/null", inBackground);
  host.start();
  EXPECT_EQ(partOf(host.read("userInfo"), "/age"), "37");
  expectParts(firstEvents()[1].data,
              {{"/old_app_version", R"("0.8")"}, {"/installed_before_kite", "true"}});
}

TEST_F(HostileFindTests, stopTheProcessWhenAValueOfTheUserCannotBeTakenOver) {
  for (const auto* value : {R"({"$date": 0})", R"({"$data": "00"})", R"({"$instance": "NSColor"})",
                            R"([1, {"k": {"$instance": "NSColor"}}])"}) {
    SCOPED_TRACE(value);
    const auto archive = archiveWith(R"("value": )" + std::string(value));
    secrets.put(userInfoEntry, archive, "data");
    Host host(application, closed.url(), "/dev/null", inBackground);
    host.process.send(R"({"op":"start"})");
    EXPECT_EQ(host.process.wait(), -SIGABRT);
    EXPECT_THAT(
        contents(application.log),
        EndsWith("Fatal error: User Info Migration failed: file UserInfo, line 229\nin start\n"));
    EXPECT_EQ(secrets.get("Kite-User-Info"), std::nullopt);
    EXPECT_EQ(secrets.get(userInfoEntry), archive);
  }
  secrets.remove(userInfoEntry);
  Host host(application, closed.url(), "/dev/null", inBackground);
  host.start();
}

TEST_F(HostileFindTests, keepOnlyTheirOwnEventsFromBeingSent) {
  const auto archive = keyedArchive(R"({"age": 37, "ratio": NaN})");
  secrets.put(userInfoEntry, archive, "data");
  const Collector collector;
  {
    Host host(application, collector, inBackground);
    host.start();
    EXPECT_EQ(partOf(host.read("userInfo"), "/age"), "37");
    host.track("unsendable");
    const auto reports = [&] {
      return occurrences(contents(application.log),
                         R"("error_coding_path":["user","info","ratio"])");
    };
    EXPECT_TRUE(eventually([&] { return reports() >= 4; })) << contents(application.log);
    EXPECT_THAT(queued(application.state), IsEmpty());
    EXPECT_EQ(secrets.get("Kite-User-Info"), std::nullopt);
    host.quit();
  }
  secrets.put(userInfoEntry, keyedArchive(R"({"age": 37, "ratio": 0.5})"), "data");
  Host host(application, collector, inBackground);
  host.start();
  host.track("sendable");
  ASSERT_TRUE(eventually([&] { return collector.events().size() == 2; }));
  EXPECT_THAT(types(collector.events()), ElementsAre("UserInfoUpdated", "UserAction"));
}

TEST_F(HostileFindTests, areNoInstallRecordWhenTheirValuesAreOfOtherTypes) {
  app.put(installEntry, propertyList(R"({"Last-App-Version": 7, "Install-Timestamp": {"$date": 0},
                           "Installed-Before-Kite": "yes"})"),
          "plist");
  Host host(application, closed.url(), "/dev/null", inBackground);
  host.start();
  expectParts(firstEvents()[1].data,
              {{"/old_app_version", ""}, {"/installed_before_kite", "false"}});
  EXPECT_GT(std::stod(host.read("firstInstallTimestamp")), 1.7e9);
}

TEST_F(HostileFindTests, areNoInstallRecordWhenTheyAreNoPropertyList) {
  app.put(installEntry, half(propertyList(R"({"Last-App-Version": "0.8"})")), "data");
  Host host(application, closed.url(), "/dev/null", inBackground);
  host.start();
  EXPECT_EQ(partOf(firstEvents()[1].data, "/old_app_version"), "");
}

TEST_F(HostileFindTests, doNotBecomePropertyListsOfAStore) {
  const auto list = propertyList(R"({"Last-App-Version": "0.8", "list": [1, 2, 3]})");
  for (const auto& bytes : {half(list), std::string(4096, '?'), propertyList("[1]")}) {
    const auto result = app.tryPut(installEntry, bytes, "plist");
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.errors, HasSubstr("not a property list with a dictionary at its root"));
    EXPECT_EQ(app.get(installEntry), std::nullopt);
  }
}

}  // namespace
}  // namespace kite::test
