#include <Kite/Linux/LinuxPlatform.h>

#include "Support/FakeSystem.h"
#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <semaphore>
#include <string>
#include <thread>

namespace kite::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class LinuxPlatformTests : public testing::Test {
 protected:
  Linux::PlatformOptions options() {
    return {.applicationName = "app",
            .kitbag = {.appVersion = "2.0",
                       .bundleVersion = "5",
                       .distributionChannel = DistributionChannel::appStore},
            .dataFolder = folder.path() / "data",
            .secretsFolder = folder.path() / "secrets",
            .locale =
                Locale{.identifier = "de_DE", .regionCode = "DE", .preferredLanguages = {"de-DE"}},
            .system = system.system()};
  }

  TemporaryFolder folder;
  FakeSystem system;
};

TEST_F(LinuxPlatformTests, opensNothingBeforeItIsAsked) {
  const auto platform = Linux::platform(options());
  EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

TEST_F(LinuxPlatformTests, passesOnWhatTheHostTells) {
  const auto platform = Linux::platform(options());
  EXPECT_EQ(platform.kitbag(), options().kitbag);
  EXPECT_EQ(platform.locale().identifier, "de_DE");
}

TEST_F(LinuxPlatformTests, keepsTheStoresInTheirFolders) {
  const auto platform = Linux::platform(options());
  platform.kvStorage()->write("k", {"1"});
  platform.secretsStorage({})->write("k", {"1"});
  EXPECT_TRUE(std::filesystem::exists(folder.path() / "data/kv.values.log"));
  EXPECT_TRUE(std::filesystem::exists(folder.path() / "secrets/secrets.values.log"));
  EXPECT_THAT(platform.fileManager().urlsForDirectory(FileManager::documentDirectory,
                                                      FileManager::userDomainMask),
              ElementsAre((folder.path() / "data").string()));
}

TEST_F(LinuxPlatformTests, sharesAStoreForAsLongAsItIsHeld) {
  const auto platform = Linux::platform(options());
  const auto keyValues = platform.kvStorage();
  const auto secrets = platform.secretsStorage({});
  EXPECT_EQ(platform.kvStorage(), keyValues);
  EXPECT_EQ(platform.secretsStorage({}), secrets);
  EXPECT_THAT(system.lines(), IsEmpty());
}

TEST_F(LinuxPlatformTests, opensAStoreAgainThatNobodyHolds) {
  const auto platform = Linux::platform(options());
  platform.kvStorage()->write("k", {"1"});
  EXPECT_EQ(platform.kvStorage()->read("k")->data().bytes, "1");
  EXPECT_THAT(system.lines(), IsEmpty());
}

TEST_F(LinuxPlatformTests, theStoresTellTheHostsConsole) {
  const auto first = Linux::platform(options()).kvStorage();
  const auto second = Linux::platform(options()).kvStorage();
  EXPECT_EQ(system.lines().size(), 1u);
}

TEST_F(LinuxPlatformTests, makesANewQueueEachTime) {
  const auto platform = Linux::platform(options());
  const auto first = platform.queue("a");
  const auto second = platform.queue("b");
  EXPECT_NE(first, second);
  std::binary_semaphore ran(0);
  first->run([&] { ran.release(); });
  ran.acquire();
}

TEST_F(LinuxPlatformTests, takesTheHostsNotificationCenter) {
  auto given = options();
  given.notificationCenter = Linux::notificationCenter();
  EXPECT_EQ(Linux::platform(given).notificationCenter(), given.notificationCenter);
  EXPECT_NE(Linux::platform(options()).notificationCenter(), nullptr);
}

TEST_F(LinuxPlatformTests, takesTheHostsAttributionClient) {
  auto given = options();
  given.attributionClient = AttributionClient::live([](const AttributionClient::Callback& answer) {
    answer(AttributionClient::Details{{"campaign", "c"}}, std::nullopt);
  });
  std::optional<AttributionClient::Details> received;
  Linux::platform(given).attributionClient().requestAttributionDetails(
      [&](auto details, auto) { received = details; });
  EXPECT_EQ(received, (AttributionClient::Details{{"campaign", "c"}}));
}

TEST_F(LinuxPlatformTests, fillsEveryPart) {
  const auto platform = Linux::platform(options());
  EXPECT_NE(platform.urlSession(), nullptr);
  EXPECT_NE(platform.scheduler(), nullptr);
  EXPECT_NE(platform.usherManager(), nullptr);
  EXPECT_FALSE(platform.device()->systemVersion.empty());
  EXPECT_GT(platform.timeProvider().now().secondsSince1970, 1.7e9);
  EXPECT_EQ(platform.randomUUID(), FakeSystem::uuid(1));
  EXPECT_EQ(platform.advertisingIdentifier(), std::nullopt);
  EXPECT_EQ(platform.notBackuppableIdFolder(), std::nullopt);
  EXPECT_EQ(platform.libraryShortVersion, "1.0.0");
}

}  // namespace
}  // namespace kite::test
