#include "Linux/Machine/Usher.h"

#include "Support/CatchFatalErrors.h"
#include "Support/FakeSystem.h"
#include "Support/InMemoryKVStorage.h"
#include "Support/InMemorySecretsStorage.h"
#include "Support/TemporaryFolder.h"

#include <sys/stat.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <concepts>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>

namespace kite::test {
namespace {

using testing::ElementsAre;
using testing::Key;
using Usher::CreationType;
using Usher::Id;

class UsherTests : public testing::Test {
 protected:
  Usher::UsherDependencies dependencies() {
    return {.kitbag = {},
            .kvstorage = keyValues,
            .secretsStorage = secrets,
            .idfaProvider = [this] { return advertising; },
            .identifierForVendorProvider = std::make_shared<const Device>(Device{
                .systemVersion = "",
                .model = "",
                .machine = nullptr,
                .identifierForVendor = [this] { return vendor; },
            }),
            .fileManager = {},
            .customIdentifiers = custom,
            .notBackuppableIdFolderProvider = [this] { return notBackedUp; }};
  }
  std::shared_ptr<Usher::Manager> started() {
    auto manager = std::make_shared<Usher::Manager>(system.system());
    manager->start(dependencies());
    return manager;
  }
  static std::string uuid(std::uint32_t number) { return FakeSystem::uuid(number).text(); }

  FakeSystem system;
  std::shared_ptr<InMemoryKVStorage> keyValues = std::make_shared<InMemoryKVStorage>();
  std::shared_ptr<InMemorySecretsStorage> secrets = std::make_shared<InMemorySecretsStorage>();
  std::optional<std::string> advertising, vendor, notBackedUp;
  Usher::CustomIdentifiers custom;
};

TEST_F(UsherTests, makesIdentifiersAtFirstUse) {
  const auto manager = started();
  EXPECT_EQ(manager->userDefaultsId(), (Id{uuid(1), CreationType::justGenerated}));
  EXPECT_EQ(manager->keychainId(), (Id{uuid(2), CreationType::justGenerated}));
  EXPECT_EQ(keyValues->text("Kite-User-Defaults-Id"), '"' + uuid(1) + '"');
  EXPECT_EQ(secrets->text("Kite-Keychain-Id"), '"' + uuid(2) + '"');
}

TEST_F(UsherTests, findsItsIdentifiersAgain) {
  started();
  const auto next = started();
  EXPECT_EQ(next->userDefaultsId(), (Id{uuid(1), CreationType::readFromFile}));
  EXPECT_EQ(next->keychainId(), (Id{uuid(2), CreationType::readFromFile}));
  EXPECT_EQ(system.drawnUUIDs(), 2u);
}

TEST_F(UsherTests, theIdentifierOfTheSecretsSurvivesTheLossOfTheOther) {
  started();
  keyValues->remove("Kite-User-Defaults-Id");
  const auto next = started();
  EXPECT_EQ(next->userDefaultsId(), (Id{uuid(3), CreationType::justGenerated}));
  EXPECT_EQ(next->keychainId(), (Id{uuid(2), CreationType::readFromFile}));
}

TEST_F(UsherTests, makesIdentifiersAnewThatCannotBeRead) {
  for (const auto* text : {"", "no JSON", "5", "\"no identifier\"", "[]"}) {
    keyValues->put("Kite-User-Defaults-Id", text);
    secrets->put("Kite-Keychain-Id", text);
    const auto manager = started();
    EXPECT_EQ(manager->userDefaultsId().creationType, CreationType::justGenerated) << text;
    EXPECT_EQ(manager->keychainId().creationType, CreationType::justGenerated) << text;
    EXPECT_EQ(keyValues->text("Kite-User-Defaults-Id"),
              '"' + manager->userDefaultsId().value + '"');
  }
}

TEST_F(UsherTests, writesIdentifiersInUpperCase) {
  keyValues->put("Kite-User-Defaults-Id", "\"aaaaaaaa-bbbb-4ccc-8ddd-eeeeeeeeeeee\"");
  EXPECT_EQ(started()->userDefaultsId(),
            (Id{"AAAAAAAA-BBBB-4CCC-8DDD-EEEEEEEEEEEE", CreationType::readFromFile}));
}

TEST_F(UsherTests, namesItsIdentifiers) {
  const auto manager = started();
  EXPECT_THAT(*manager->ids(), ElementsAre(Key("keychain_id"), Key("userdefault_id")));
  EXPECT_EQ(manager->ids()->at("keychain_id"), manager->keychainId());
  EXPECT_EQ(manager->ids()->at("userdefault_id"), manager->userDefaultsId());
}

TEST_F(UsherTests, addsWhatTheDeviceAndThePlatformKnow) {
  const auto manager = started();
  advertising = "A";
  vendor = "V";
  EXPECT_EQ(manager->ids()->at("idfa"), Id{"A"});
  EXPECT_EQ(manager->ids()->at("idfv"), Id{"V"});
  EXPECT_EQ(manager->ids()->at("idfv").creationType, CreationType::notApplicable);
}

TEST_F(UsherTests, aCustomIdentifierReplacesThatOfThePlatform) {
  custom["idfa"] = [] { return std::optional<std::string>("custom"); };
  advertising = "A";
  EXPECT_EQ(started()->ids()->at("idfa"), Id{"custom"});
}

TEST_F(UsherTests, asksForCustomIdentifiersEachTime) {
  auto account = std::make_shared<std::optional<std::string>>();
  custom["account"] = [account] { return *account; };
  const auto manager = started();
  EXPECT_EQ(manager->ids()->count("account"), 0u);
  *account = "42";
  EXPECT_EQ(manager->ids()->at("account"), Id{"42"});
  *account = "43";
  EXPECT_EQ(manager->ids()->at("account"), Id{"43"});
  account->reset();
  EXPECT_EQ(manager->ids()->count("account"), 0u);
}

TEST_F(UsherTests, givesTheSameObjectUntilAValueChanges) {
  auto account = std::make_shared<std::optional<std::string>>("42");
  custom["account"] = [account] { return *account; };
  const auto manager = started();
  const auto first = manager->ids();
  EXPECT_EQ(manager->ids(), first);
  *account = "43";
  EXPECT_NE(manager->ids(), first);
  EXPECT_EQ(first->at("account"), Id{"42"});
}

TEST_F(UsherTests, noticesThatOneIdentifierTookThePlaceOfAnother) {
  const auto manager = started();
  advertising = "same";
  const auto first = manager->ids();
  advertising.reset();
  vendor = "same";
  EXPECT_NE(manager->ids(), first);
  EXPECT_EQ(manager->ids()->count("idfa"), 0u);
}

TEST_F(UsherTests, aCustomIdentifierDoesNotReplaceItsOwn) {
  custom["keychain_id"] = [] { return std::optional<std::string>("custom"); };
  const auto manager = started();
  EXPECT_EQ(manager->ids()->at("keychain_id"), manager->keychainId());
  EXPECT_EQ(manager->ids(), manager->ids());
}

TEST_F(UsherTests, doesNoInputOrOutputForItsIdentifiers) {
  const auto manager = started();
  keyValues->put("Kite-User-Defaults-Id", "\"AAAAAAAA-BBBB-4CCC-8DDD-EEEEEEEEEEEE\"");
  EXPECT_EQ(manager->ids()->at("userdefault_id").value, uuid(1));
  EXPECT_EQ(manager->userDefaultsId().value, uuid(1));
}

TEST_F(UsherTests, keepsAnIdentifierOutOfBackups) {
  const TemporaryFolder folder;
  notBackedUp = folder.path() / "state";
  EXPECT_EQ(started()->ids()->at("not_backupable_id"), (Id{uuid(3), CreationType::justGenerated}));
  EXPECT_EQ(started()->ids()->at("not_backupable_id"), (Id{uuid(3), CreationType::readFromFile}));
  struct stat status {};
  ASSERT_EQ(::stat((*notBackedUp + "/not_backupable_id").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600u);
}

TEST_F(UsherTests, replacesAFileThatHoldsNoIdentifier) {
  const TemporaryFolder folder;
  notBackedUp = folder.path();
  std::ofstream(folder.path() / "not_backupable_id") << "nothing";
  EXPECT_EQ(started()->ids()->at("not_backupable_id").creationType, CreationType::justGenerated);
  EXPECT_EQ(started()->ids()->at("not_backupable_id").creationType, CreationType::readFromFile);
}

TEST_F(UsherTests, leavesOutAnIdentifierThatItCannotKeep) {
  const TemporaryFolder folder;
  notBackedUp = folder.path();
  std::ofstream(folder.path() / "elsewhere") << uuid(9);
  std::filesystem::create_symlink("elsewhere", folder.path() / "not_backupable_id");
  EXPECT_EQ(started()->ids()->count("not_backupable_id"), 0u);
  std::ifstream elsewhere(folder.path() / "elsewhere");
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(elsewhere), {}), uuid(9));
}

TEST_F(UsherTests, stopsTheProcessBeforeStart) {
  const CatchFatalErrors trap;
  const Usher::Manager manager(system.system());
  EXPECT_FATAL(manager.ids(), "Call start before using the UsherManager");
  EXPECT_FATAL(manager.userDefaultsId(), "Call start before using the UsherManager");
  EXPECT_FATAL(manager.keychainId(), "Call start before using the UsherManager");
}

static_assert(std::default_initializable<Usher::Manager>);

}  // namespace
}  // namespace kite::test
