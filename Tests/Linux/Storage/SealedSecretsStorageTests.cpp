#include <Kite/Linux/LinuxPlatform.h>

#include "Linux/Storage/StoreLogs.h"
#include "Support/FakeSystem.h"
#include "Support/FileLease.h"
#include "Support/TemporaryFolder.h"

#include <sys/stat.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <string>

namespace kite::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

class SealedSecretsStorageTests : public testing::Test {
 protected:
  using Storage = std::shared_ptr<Larder::SecretsStorage>;

  Storage open() { return Linux::sealedSecretsStorage(folder, system.system()); }
  static std::string text(const Storage& storage, const char* key) {
    const auto value = storage->read(key);
    return value ? value->data().bytes : "absent";
  }
  std::string savedText(const char* key) { return text(open(), key); }

  /// The store as somebody sees it who knows the format but not the master key.
  std::unique_ptr<Linux::StoreLogs> openLogs() {
    auto logs = Linux::StoreLogs::own(folder, Linux::secretsStoreName(), system.system());
    return logs ? *std::move(logs) : nullptr;
  }
  std::string sealed(std::string_view key) {
    const auto logs = openLogs();
    const auto found = logs->values().find(key);
    return found == logs->values().end() ? "" : found->second.bytes;
  }
  void forge(std::string_view key, std::string bytes) {
    EXPECT_TRUE(openLogs()->put(key, {Linux::ValueKind::data, std::move(bytes)}));
  }
  void tamperWith(std::string_view key) {
    auto bytes = sealed(key);
    bytes.back() = static_cast<char>(bytes.back() ^ 1);
    forge(key, bytes);
  }

  static std::string contents(const std::filesystem::path& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }
  void blockThePlace() {
    std::filesystem::create_directories(folder.parent_path());
    std::ofstream(folder) << "in the way";
  }

  TemporaryFolder temporary;
  std::filesystem::path folder = temporary.path() / "secrets/app";
  std::filesystem::path keyFile = folder / "master.key";
  FakeSystem system;
};

TEST_F(SealedSecretsStorageTests, leavesNothingReadableOnTheDisk) {
  const auto storage = open();
  storage->write("key", {"a secret that is told to nobody"});
  for (const auto& entry : std::filesystem::directory_iterator(folder))
    EXPECT_THAT(contents(entry.path()), Not(HasSubstr("told to nobody"))) << entry.path();
  EXPECT_EQ(text(storage, "key"), "a secret that is told to nobody");
}

TEST_F(SealedSecretsStorageTests, keepsFilesFromOtherUsers) {
  const auto storage = open();
  storage->write("k", {"1"});
  using std::filesystem::perms;
  EXPECT_EQ(std::filesystem::status(folder).permissions(), perms::owner_all);
  for (const auto& entry : std::filesystem::directory_iterator(folder))
    EXPECT_EQ(entry.status().permissions(), perms::owner_read | perms::owner_write) << entry.path();
}

TEST_F(SealedSecretsStorageTests, sealsTheSameTextDifferentlyEachTime) {
  open()->write("k", {"text"});
  const auto first = sealed("k");
  open()->write("k", {"text"});
  EXPECT_NE(sealed("k"), first);
}

TEST_F(SealedSecretsStorageTests, aValueThatWasTamperedWithReadsAsAbsent) {
  {
    const auto storage = open();
    storage->write("bad", {"text"});
    storage->write("good", {"text"});
  }
  tamperWith("bad");
  EXPECT_EQ(savedText("bad"), "absent");
  EXPECT_EQ(savedText("good"), "text");
  EXPECT_EQ(system.lines().front(), "[KITE] Damaged values in the secrets store: 1");
}

TEST_F(SealedSecretsStorageTests, aForgeryOfTheSameBytesIsNone) {
  open()->write("k", {"text"});
  forge("k", sealed("k"));
  EXPECT_EQ(savedText("k"), "text");
  EXPECT_THAT(system.lines(), IsEmpty());
}

TEST_F(SealedSecretsStorageTests, valuesThatChangedPlacesReadAsAbsent) {
  {
    const auto storage = open();
    storage->write("a", {"1"});
    storage->write("b", {"2"});
  }
  const auto a = sealed("a"), b = sealed("b");
  forge("a", b);
  forge("b", a);
  EXPECT_EQ(savedText("a") + savedText("b"), "absentabsent");
}

TEST_F(SealedSecretsStorageTests, keepsItsKey) {
  open();
  const auto key = contents(keyFile);
  EXPECT_EQ(key.size(), 32u);
  open();
  EXPECT_EQ(contents(keyFile), key);
}

TEST_F(SealedSecretsStorageTests, readsNothingWithAnotherKey) {
  open()->write("k", {"1"});
  std::ofstream(keyFile, std::ios::binary) << std::string(32, 'x');
  EXPECT_EQ(savedText("k"), "absent");
}

TEST_F(SealedSecretsStorageTests, setsAKeyFileAsideThatHoldsNoKey) {
  open()->write("k", {"1"});
  std::ofstream(keyFile, std::ios::binary) << "too short";
  open()->write("k", {"2"});
  EXPECT_THAT(system.lines().front(),
              StartsWith("[KITE] The key of the secrets store is unusable: it was set aside as "
                         "master.key.unusable-"));
  EXPECT_EQ(contents(keyFile).size(), 32u);
  EXPECT_EQ(savedText("k"), "2");
}

TEST_F(SealedSecretsStorageTests, setsAFolderAsideThatStandsInPlaceOfItsKey) {
  std::filesystem::create_directories(keyFile);
  open()->write("k", {"1"});
  EXPECT_EQ(savedText("k"), "1");
}

TEST_F(SealedSecretsStorageTests, doesNotFollowALinkInPlaceOfItsKey) {
  std::filesystem::create_directories(folder);
  std::ofstream(temporary.path() / "elsewhere") << std::string(32, 'x');
  std::filesystem::create_symlink(temporary.path() / "elsewhere", keyFile);
  open()->write("k", {"1"});
  EXPECT_FALSE(std::filesystem::is_symlink(keyFile));
  EXPECT_NE(contents(keyFile), std::string(32, 'x'));
  EXPECT_EQ(contents(temporary.path() / "elsewhere"), std::string(32, 'x'));
}

TEST_F(SealedSecretsStorageTests, takesItsKeyFromTheEyesOfOthers) {
  open()->write("k", {"1"});
  ::chmod(keyFile.c_str(), 0644);
  EXPECT_EQ(savedText("k"), "1");
  using std::filesystem::perms;
  EXPECT_EQ(std::filesystem::status(keyFile).permissions(), perms::owner_read | perms::owner_write);
}

TEST_F(SealedSecretsStorageTests, leavesAKeyFileInPlaceThatCannotBeReadThisTime) {
  open()->write("k", {"1"});
  const auto key = contents(keyFile);
  Storage storage;
  {
    const FileLease lease(keyFile);
    ASSERT_TRUE(lease.isHeld());
    storage = open();
    EXPECT_THAT(system.lines(), ElementsAre("[KITE] The secrets store keeps its values in memory "
                                            "only: it has no key"));
    storage->write("k", {"2"});
  }
  storage->write("other", {"3"});
  EXPECT_EQ(text(storage, "k"), "2");
  storage.reset();
  EXPECT_EQ(contents(keyFile), key);
  EXPECT_EQ(savedText("k"), "1");
  EXPECT_EQ(savedText("other"), "absent");
}

TEST_F(SealedSecretsStorageTests, comesBackWithItsKeyOnceThereIsAPlace) {
  blockThePlace();
  {
    const auto storage = open();
    storage->write("a", {"1"});
    std::filesystem::remove(folder);
    storage->write("b", {"2"});
    std::filesystem::remove_all(folder);
    storage->write("c", {"3"});
  }
  EXPECT_EQ(savedText("a") + savedText("b") + savedText("c"), "123");
}

TEST_F(SealedSecretsStorageTests, comesBackOnceItsKeyCanBeKept) {
  blockThePlace();
  {
    const auto storage = open();
    std::filesystem::remove(folder);
    std::filesystem::create_directories(folder / "master.key.new/in the way");
    storage->write("a", {"1"});
    std::filesystem::remove_all(folder / "master.key.new");
    storage->write("b", {"2"});
  }
  EXPECT_EQ(savedText("a") + savedText("b"), "12");
}

TEST_F(SealedSecretsStorageTests, doesNotComeBackToAPlaceWithAnotherKey) {
  open();
  const auto key = contents(keyFile);
  std::filesystem::rename(folder, temporary.path() / "kept");
  blockThePlace();
  auto storage = open();
  std::filesystem::remove(folder);
  std::filesystem::rename(temporary.path() / "kept", folder);
  storage->write("k", {"1"});
  storage.reset();
  EXPECT_EQ(contents(keyFile), key);
  EXPECT_EQ(sealed("k"), "");
}

TEST_F(SealedSecretsStorageTests, aSecondOwnerWorksInMemory) {
  const auto first = open();
  first->write("k", {"1"});
  const auto second = open();
  EXPECT_THAT(system.lines(), ElementsAre("[KITE] The secrets store keeps its values in memory "
                                          "only: " +
                                          folder.string() + " is in use by this process already"));
  second->write("k", {"2"});
  EXPECT_EQ(text(second, "k") + text(first, "k"), "21");
}

TEST_F(SealedSecretsStorageTests, setsTheDatabaseOfAnEarlierFormatAsideAndKeepsItsKey) {
  std::filesystem::create_directories(folder);
  std::ofstream(folder / "secrets.sqlite") << "values";
  std::ofstream(keyFile) << std::string(32, 'x');
  open()->write("k", {"1"});
  EXPECT_EQ(
      contents(folder / (std::string("secrets.sqlite.former-").append(FakeSystem::uuid(1).text()))),
      "values");
  EXPECT_EQ(contents(keyFile), std::string(32, 'x'));
  EXPECT_THAT(system.lines(), ElementsAre(HasSubstr("has an earlier format")));
}

TEST_F(SealedSecretsStorageTests, noConsoleLineNamesAValueOrTheKey) {
  open()->write("k", {"payload"});
  const auto key = contents(keyFile);
  tamperWith("k");
  open();
  ASSERT_FALSE(system.lines().empty());
  for (const auto& line : system.lines()) {
    EXPECT_THAT(line, Not(HasSubstr("payload")));
    EXPECT_THAT(line, Not(HasSubstr(key)));
  }
}

}  // namespace
}  // namespace kite::test
