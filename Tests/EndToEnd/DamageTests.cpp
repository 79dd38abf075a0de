#include "EndToEnd/Host.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kite::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

/// Overwrites every file of a folder with something that no store would write.
void ruin(const fs::path& folder) {
  for (const auto& entry : fs::directory_iterator(folder)) {
    if (entry.is_regular_file()) writeFile(entry.path(), std::string(8192, '?'));
  }
}

bool hasFileNamed(const fs::path& folder, const std::string& part) {
  for (const auto& entry : fs::directory_iterator(folder)) {
    if (entry.path().filename().string().find(part) != std::string::npos) return true;
  }
  return false;
}

class DamageTests : public testing::Test {
 protected:
  /// Whether the collector has got an action of that name.
  bool arrives(const std::string& name) {
    return eventually([&] {
      const auto events = collector.events();
      return std::any_of(events.begin(), events.end(), [&](const auto& event) {
        return event.has("\"action_kind\":\"" + name + "\"");
      });
    });
  }

  Collector collector;
  Application application;
};

TEST_F(DamageTests, setsFilesAsideThatHoldNoStoreAndBeginsAFreshOne) {
  {
    Host host(application, collector, {"--start-in-background"});
    host.start();
    ASSERT_TRUE(eventually([&] { return collector.events().size() == 2; }));
    host.quit();
  }
  const fs::path store = fs::path(application.state) / "app";
  ruin(store);
  const auto before = contents(application.log).size();

  Host host(application, collector, {"--start-in-background"});
  host.start();
  host.track("afterwards");
  EXPECT_TRUE(arrives("afterwards"));
  EXPECT_TRUE(hasFileNamed(store, ".foreign-"));
  EXPECT_THAT(contents(application.log).substr(before), HasSubstr("[KITE] "));
  EXPECT_THAT(contents(application.log).substr(before), HasSubstr("was set aside"));
  EXPECT_EQ(run({"store", "--state", application.state, "get", "Kite-Install-Manager"}).status, 0);
}

TEST_F(DamageTests, goesOnWithAFolderThatItCannotWriteTo) {
  fs::create_directory(application.state);
  if (::geteuid() == 0) {
    ASSERT_EQ(::chown(application.state.c_str(), 65534, 65534), 0);
  }
  fs::permissions(application.state, fs::perms(0500));
  fs::permissions(fs::path(collector.ca()).parent_path(), fs::perms(0755));
  fs::permissions(collector.ca(), fs::perms(0644));

  Host host(application, collector.url(), collector.ca(), {"--start-in-background"}, true);
  host.start();
  host.track("from memory");
  EXPECT_TRUE(arrives("from memory"));
  EXPECT_EQ(occurrences(contents(application.log), application.state + "/app"), 1)
      << contents(application.log);
  EXPECT_TRUE(fs::is_empty(application.state));
}

TEST_F(DamageTests, leavesTheStoreToTheHostThatHasIt) {
  Host first(application, collector, {"--start-in-background"});
  first.start();
  ASSERT_TRUE(eventually([&] { return collector.events().size() == 2; }));
  const auto before = contents(application.log).size();

  Host second(application, collector, {"--start-in-background"});
  second.start();
  second.track("from the second");
  EXPECT_TRUE(arrives("from the second"));
  EXPECT_THAT(contents(application.log).substr(before), HasSubstr(application.state + "/app"));
  for (const auto& event : queued(application.state)) EXPECT_FALSE(event.has("from the second"));
}

}  // namespace
}  // namespace kite::test
