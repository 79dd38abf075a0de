#include <Kite/Linux/LinuxPlatform.h>

#include "Support/FakeSystem.h"
#include "Support/RawDatabase.h"
#include "Support/TemporaryFolder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <fstream>
#include <iterator>
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
  std::shared_ptr<Larder::SecretsStorage> open() {
    return Linux::sealedSecretsStorage(folder, system.system());
  }
  std::string savedText(const char* key) {
    const auto value = open()->read(key);
    return value ? value->data().bytes : "absent";
  }
  std::string sealed(const std::string& key) {
    return RawDatabase(file).value("SELECT bytes FROM entries WHERE key='" + key + "'");
  }
  /// Puts bytes under a key as somebody would who knows the format but not the master key.
  void forge(const std::string& key, const std::string& bytes) {
    const std::int64_t kind = 1;
    auto crc = crc32_z(0, reinterpret_cast<const Bytef*>(key.data()), key.size());
    crc = crc32_z(crc, reinterpret_cast<const Bytef*>(&kind), sizeof kind);
    crc = crc32_z(crc, reinterpret_cast<const Bytef*>(bytes.data()), bytes.size());
    RawDatabase(file).execute("UPDATE entries SET bytes=" + hexadecimalBlob(bytes) +
                              ", crc=" + std::to_string(crc) + " WHERE key='" + key + "'");
  }
  std::string contents(const std::filesystem::path& path) const {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }

  TemporaryFolder temporary;
  std::filesystem::path folder = temporary.path() / "secrets/app";
  std::filesystem::path file = folder / "secrets.sqlite";
  FakeSystem system;
};

TEST_F(SealedSecretsStorageTests, leavesNothingReadableOnTheDisk) {
  const auto storage = open();
  storage->write("key", {"a secret that is told to nobody"});
  for (const auto& entry : std::filesystem::directory_iterator(folder))
    EXPECT_THAT(contents(entry.path()), Not(HasSubstr("told to nobody"))) << entry.path();
  EXPECT_EQ(storage->read("key")->data().bytes, "a secret that is told to nobody");
}

TEST_F(SealedSecretsStorageTests, keepsFilesFromOtherUsers) {
  const auto storage = open();
  storage->write("k", {"1"});
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    struct stat status {};
    ASSERT_EQ(::stat(entry.path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600u) << entry.path();
  }
  EXPECT_EQ(std::filesystem::status(folder).permissions(), std::filesystem::perms::owner_all);
}

TEST_F(SealedSecretsStorageTests, sealsTheSameTextDifferentlyEachTime) {
  const auto storage = open();
  storage->write("k", {"text"});
  const auto first = sealed("k");
  storage->write("k", {"text"});
  EXPECT_NE(sealed("k"), first);
}

TEST_F(SealedSecretsStorageTests, aValueThatWasTamperedWithReadsAsAbsent) {
  {
    const auto storage = open();
    storage->write("bad", {"text"});
    storage->write("good", {"text"});
  }
  auto bytes = sealed("bad");
  bytes.back() = static_cast<char>(bytes.back() ^ 1);
  forge("bad", bytes);
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
  EXPECT_EQ(savedText("a"), "absent");
  EXPECT_EQ(savedText("b"), "absent");
}

TEST_F(SealedSecretsStorageTests, keepsItsKey) {
  open();
  const auto key = contents(folder / "master.key");
  EXPECT_EQ(key.size(), 32u);
  open();
  EXPECT_EQ(contents(folder / "master.key"), key);
}

TEST_F(SealedSecretsStorageTests, readsNothingWithAnotherKey) {
  open()->write("k", {"1"});
  std::ofstream(folder / "master.key", std::ios::binary) << std::string(32, 'x');
  EXPECT_EQ(savedText("k"), "absent");
}

TEST_F(SealedSecretsStorageTests, setsAKeyFileAsideThatHoldsNoKey) {
  open()->write("k", {"1"});
  std::ofstream(folder / "master.key", std::ios::binary) << "too short";
  const auto storage = open();
  EXPECT_THAT(system.lines().front(),
              StartsWith("[KITE] The key of the secrets store is unusable: it was set aside as "
                         "master.key.unusable-"));
  EXPECT_EQ(contents(folder / "master.key").size(), 32u);
  storage->write("k", {"2"});
  EXPECT_EQ(storage->read("k")->data().bytes, "2");
}

// A lease makes the key's file one that is there and cannot be opened just now.
class KeyLease {
 public:
  explicit KeyLease(const std::filesystem::path& file) : _file(::open(file.c_str(), O_RDWR)) {
    ::fcntl(_file, F_SETSIG, SIGURG);  // which is ignored
    isHeld = ::fcntl(_file, F_SETLEASE, F_WRLCK) == 0;
  }
  KeyLease(const KeyLease&) = delete;
  KeyLease& operator=(const KeyLease&) = delete;
  ~KeyLease() { ::close(_file); }

  bool isHeld = false;

 private:
  int _file;
};

TEST_F(SealedSecretsStorageTests, leavesAKeyFileInPlaceThatCannotBeReadThisTime) {
  open()->write("k", {"1"});
  const auto key = contents(folder / "master.key");
  {
    const KeyLease lease(folder / "master.key");
    ASSERT_TRUE(lease.isHeld);
    const auto storage = open();
    EXPECT_THAT(system.lines(), ElementsAre("[KITE] The secrets store keeps its values in memory "
                                            "only: it has no key"));
    storage->write("k", {"2"});
    EXPECT_EQ(storage->read("k")->data().bytes, "2");
  }
  EXPECT_EQ(contents(folder / "master.key"), key);
  EXPECT_EQ(savedText("k"), "1");
}

TEST_F(SealedSecretsStorageTests, takesItsKeyFromTheEyesOfOthers) {
  open()->write("k", {"1"});
  ::chmod((folder / "master.key").c_str(), 0644);
  EXPECT_EQ(savedText("k"), "1");
  EXPECT_EQ(std::filesystem::status(folder / "master.key").permissions(),
            std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

TEST_F(SealedSecretsStorageTests, setsAFolderAsideThatStandsInPlaceOfItsKey) {
  std::filesystem::create_directories(folder / "master.key");
  open()->write("k", {"1"});
  EXPECT_EQ(savedText("k"), "1");
}

TEST_F(SealedSecretsStorageTests, comesBackWithItsKeyOnceThereIsAPlace) {
  std::filesystem::create_directories(folder.parent_path());
  std::ofstream(folder) << "in the way";
  {
    const auto storage = open();
    storage->write("a", {"1"});
    std::filesystem::remove(folder);
    storage->write("b", {"2"});
    std::filesystem::remove_all(folder);
    storage->write("c", {"3"});
  }
  EXPECT_EQ(savedText("a"), "1");
  EXPECT_EQ(savedText("b"), "2");
  EXPECT_EQ(savedText("c"), "3");
}

TEST_F(SealedSecretsStorageTests, comesBackOnceItsKeyCanBeKept) {
  std::filesystem::create_directories(folder.parent_path());
  std::ofstream(folder) << "in the way";
  {
    const auto storage = open();
    std::filesystem::remove(folder);
    std::filesystem::create_directories(folder / "master.key.new/in the way");
    storage->write("a", {"1"});
    std::filesystem::remove_all(folder / "master.key.new");
    storage->write("b", {"2"});
  }
  EXPECT_EQ(savedText("a"), "1");
  EXPECT_EQ(savedText("b"), "2");
}

TEST_F(SealedSecretsStorageTests, doesNotComeBackToAPlaceWithAnotherKey) {
  open();
  const auto key = contents(folder / "master.key");
  std::filesystem::rename(folder, temporary.path() / "kept");
  std::ofstream(folder) << "in the way";
  const auto storage = open();
  std::filesystem::remove(folder);
  std::filesystem::rename(temporary.path() / "kept", folder);
  storage->write("k", {"1"});
  EXPECT_EQ(contents(folder / "master.key"), key);
  EXPECT_EQ(RawDatabase(file).value("SELECT count(*) FROM entries"), "0");
}

TEST_F(SealedSecretsStorageTests, doesNotFollowALinkInPlaceOfItsKey) {
  std::filesystem::create_directories(folder);
  std::ofstream(temporary.path() / "elsewhere") << std::string(32, 'x');
  std::filesystem::create_symlink(temporary.path() / "elsewhere", folder / "master.key");
  open()->write("k", {"1"});
  EXPECT_FALSE(std::filesystem::is_symlink(folder / "master.key"));
  EXPECT_NE(contents(folder / "master.key"), std::string(32, 'x'));
  EXPECT_EQ(contents(temporary.path() / "elsewhere"), std::string(32, 'x'));
}

TEST_F(SealedSecretsStorageTests, aSecondOwnerWorksInMemory) {
  const auto first = open();
  first->write("k", {"1"});
  const auto second = open();
  EXPECT_THAT(system.lines(), ElementsAre("[KITE] The secrets store keeps its values in memory "
                                          "only: " +
                                          file.string() + " is in use by this process already"));
  second->write("k", {"2"});
  EXPECT_EQ(second->read("k")->data().bytes, "2");
  EXPECT_EQ(first->read("k")->data().bytes, "1");
}

TEST_F(SealedSecretsStorageTests, noConsoleLineNamesAValueOrTheKey) {
  open()->write("k", {"payload"});
  const auto key = contents(folder / "master.key");
  auto bytes = sealed("k");
  bytes.back() = static_cast<char>(bytes.back() ^ 1);
  forge("k", bytes);
  open();
  ASSERT_FALSE(system.lines().empty());
  for (const auto& line : system.lines()) {
    EXPECT_THAT(line, Not(HasSubstr("payload")));
    EXPECT_THAT(line, Not(HasSubstr(key)));
  }
}

}  // namespace
}  // namespace kite::test
