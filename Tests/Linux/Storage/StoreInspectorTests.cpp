#include <Kite/Linux/LinuxPlatform.h>

#include "Support/AppendRows.h"
#include "Support/FakeSystem.h"
#include "Support/Rows.h"
#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <utility>
#include <vector>

namespace kite::test {
namespace {

using Linux::inspectStore;
using Linux::StoreEntry;
using Linux::StoreKind;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;

class StoreInspectorTests : public testing::Test {
 protected:
  std::shared_ptr<Larder::KVStorage> host() {
    return Linux::keyValueStorage(folder, system.system());
  }
  std::shared_ptr<Larder::SecretsStorage> secretHost() {
    return Linux::sealedSecretsStorage(folder, system.system());
  }
  static std::vector<std::pair<std::string, StoreEntry::Kind>> entries(
      const Linux::StoreInspector& inspector) {
    std::vector<std::pair<std::string, StoreEntry::Kind>> entries;
    for (const auto& entry : inspector.entries()) entries.emplace_back(entry.key, entry.kind);
    return entries;
  }
  std::vector<std::string> files() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(temporary.path()))
      names.push_back(entry.path().filename());
    return names;
  }

  TemporaryFolder temporary;
  std::filesystem::path folder = temporary.path() / "store";
  FakeSystem system;
};

TEST_F(StoreInspectorTests, readsBesideALiveHost) {
  const auto storage = host();
  storage->write("data", {"bytes"});
  storage->writeNumber("number", 1.5);
  storage->writePropertyList("dictionary", {"<plist/>"});
  appendRows(*storage, "list", {row(1, "1"), row(2, "2")});
  const auto inspector = inspectStore(folder, StoreKind::keyValues, false);
  ASSERT_TRUE(inspector) << inspector.error();
  EXPECT_THAT(entries(**inspector), ElementsAre(Pair("data", StoreEntry::Kind::data),
                                                Pair("dictionary", StoreEntry::Kind::dictionary),
                                                Pair("list", StoreEntry::Kind::list),
                                                Pair("number", StoreEntry::Kind::number)));
  const auto values = (*inspector)->keyValues();
  EXPECT_EQ(values->read("data")->data().bytes, "bytes");
  EXPECT_EQ(values->read("list")->data().bytes, "[1,2]");
  EXPECT_EQ(values->readNumber("number"), 1.5);
  EXPECT_EQ(values->readPropertyList("dictionary"), Data{"<plist/>"});
  EXPECT_EQ((*inspector)->storage(), values);
}

TEST_F(StoreInspectorTests, readsTheNoteOfAListBesideALiveHost) {
  const auto storage = host();
  const auto save = [&](std::string note) {
    return storage->edit(
        "list", {.replacesAll = true, .removed = {}, .appended = {}, .note = std::move(note)},
        Larder::Durability::survivesKill);
  };
  for (const auto* note : {"first", "second"}) {
    save(note);
    const auto inspector = inspectStore(folder, StoreKind::keyValues, false);
    ASSERT_TRUE(inspector) << inspector.error();
    EXPECT_EQ((*inspector)->keyValues()->readList("list")->note, note);
  }
}

TEST_F(StoreInspectorTests, aHostGoesOnWritingBesideAReader) {
  const auto storage = host();
  storage->write("k", {"1"});
  const auto inspector = inspectStore(folder, StoreKind::keyValues, false);
  storage->write("k", {"2"});
  const auto later = inspectStore(folder, StoreKind::keyValues, false);
  EXPECT_EQ((*later)->storage()->read("k")->data().bytes, "2");
  EXPECT_THAT(system.lines(), IsEmpty());
}

TEST_F(StoreInspectorTests, readsAStoreThatNobodyOwns) {
  host()->write("k", {"1"});
  const auto inspector = inspectStore(folder, StoreKind::keyValues, false);
  ASSERT_TRUE(inspector) << inspector.error();
  EXPECT_EQ((*inspector)->storage()->read("k")->data().bytes, "1");
}

TEST_F(StoreInspectorTests, checksEveryFileBesideALiveOwner) {
  const auto storage = host();
  storage->write("k", {"1"});
  appendRows(*storage, "l", {row(1, "first"), row(2, "second")});
  auto files = Linux::checkStore(folder, StoreKind::keyValues);
  ASSERT_TRUE(files) << files.error();
  std::vector<std::string> names;
  for (const auto& file : *files) {
    names.push_back(file.name);
    EXPECT_GT(file.records, 0u) << file.name;
    EXPECT_EQ(file.damaged, 0u) << file.name;
    EXPECT_FALSE(file.isCutOff) << file.name;
  }
  EXPECT_THAT(names, ElementsAre("kv.lock", "kv.rows-1.log", "kv.state", "kv.values.log"));
}

TEST_F(StoreInspectorTests, checksNotesToo) {
  const auto countNow = [&] {
    const auto files = Linux::checkStore(folder, StoreKind::keyValues);
    return files ? (*files)[1].records : 0;
  };
  const auto storage = host();
  appendRows(*storage, "l", {row(1, "first")});
  const auto before = countNow();
  storage->edit("l", {.removed = {}, .appended = {}, .note = "noted"},
                Larder::Durability::survivesKill);
  // A note and the end of its edit, each twice.
  EXPECT_EQ(countNow(), before + 4);
  const auto file = folder / "kv.rows-1.log";
  std::ifstream stream(file, std::ios::binary);
  std::string bytes(std::istreambuf_iterator<char>(stream), {});
  bytes[bytes.find("noted")] ^= 1;
  std::ofstream(file, std::ios::binary) << bytes;
  EXPECT_EQ((*Linux::checkStore(folder, StoreKind::keyValues))[1].damaged, 1u);
}

TEST_F(StoreInspectorTests, countsWhatIsDamagedInAFile) {
  appendRows(*host(), "l", {row(1, "first"), row(2, "second")});
  const auto file = folder / "kv.rows-1.log";
  std::ifstream stream(file, std::ios::binary);
  std::string bytes(std::istreambuf_iterator<char>(stream), {});
  bytes[bytes.find("second")] ^= 1;
  std::ofstream(file, std::ios::binary) << bytes << bytes.substr(bytes.size() - 10, 3);
  const auto files = Linux::checkStore(folder, StoreKind::keyValues);
  ASSERT_TRUE(files) << files.error();
  EXPECT_EQ((*files)[1].damaged, 2u);
}

TEST_F(StoreInspectorTests, hasNothingToCheckWhereThereIsNoStore) {
  std::filesystem::create_directories(folder);
  EXPECT_THAT(Linux::checkStore(folder, StoreKind::secrets).error(),
              HasSubstr("there is no store"));
}

TEST_F(StoreInspectorTests, aReaderChangesNothing) {
  host()->write("k", {"1"});
  {
    const auto inspector = inspectStore(folder, StoreKind::keyValues, false);
    (*inspector)->storage()->write("k", {"2"});
    (*inspector)->storage()->remove("other");
    EXPECT_FALSE(appendRows(*(*inspector)->keyValues(), "l", {}));
  }
  EXPECT_EQ(host()->read("k")->data().bytes, "1");
}

TEST_F(StoreInspectorTests, aReaderMakesNoStoreAnew) {
  host()->write("k", {"1"});
  const auto inspector = inspectStore(folder, StoreKind::keyValues, false);
  std::filesystem::remove_all(folder);
  (*inspector)->storage()->write("k", {"2"});
  EXPECT_FALSE(std::filesystem::exists(folder));
}

TEST_F(StoreInspectorTests, aReaderDoesNotKeepAHostOut) {
  host()->write("k", {"1"});
  const auto inspector = inspectStore(folder, StoreKind::keyValues, false);
  host()->write("k", {"2"});
  EXPECT_THAT(system.lines(), IsEmpty());
}

TEST_F(StoreInspectorTests, readsSecretsBesideALiveHost) {
  const auto storage = secretHost();
  storage->write("k", {"1"});
  const auto inspector = inspectStore(folder, StoreKind::secrets, false);
  ASSERT_TRUE(inspector) << inspector.error();
  EXPECT_THAT(entries(**inspector), ElementsAre(Pair("k", StoreEntry::Kind::data)));
  EXPECT_EQ((*inspector)->storage()->read("k")->data().bytes, "1");
  EXPECT_EQ((*inspector)->keyValues(), nullptr);
}

TEST_F(StoreInspectorTests, writesWhatAHostReadsLater) {
  {
    const auto values = inspectStore(folder, StoreKind::keyValues, true);
    ASSERT_TRUE(values) << values.error();
    (*values)->keyValues()->writePropertyList("d", {"<plist/>"});
    const auto secrets = inspectStore(folder, StoreKind::secrets, true);
    ASSERT_TRUE(secrets) << secrets.error();
    (*secrets)->storage()->write("s", {"archive"});
  }
  EXPECT_EQ(host()->readPropertyList("d"), Data{"<plist/>"});
  EXPECT_EQ(secretHost()->read("s")->data().bytes, "archive");
}

TEST_F(StoreInspectorTests, refusesToWriteBesideALiveHost) {
  const auto storage = host();
  const auto secrets = secretHost();
  const auto inspector = inspectStore(folder, StoreKind::keyValues, true);
  ASSERT_FALSE(inspector);
  EXPECT_EQ(inspector.error(), folder.string() + " is in use by this process already");
  EXPECT_FALSE(inspectStore(folder, StoreKind::secrets, true));
}

TEST_F(StoreInspectorTests, saysThatThereIsNoStoreAndMakesNone) {
  const auto inspector = inspectStore(folder, StoreKind::keyValues, false);
  ASSERT_FALSE(inspector);
  EXPECT_EQ(inspector.error(), folder.string() + ": No such file or directory");
  EXPECT_THAT(files(), IsEmpty());
  std::filesystem::create_directory(folder);
  EXPECT_EQ(inspectStore(folder, StoreKind::secrets, false).error(),
            folder.string() + ": there is no store");
  EXPECT_TRUE(std::filesystem::is_empty(folder));
}

TEST_F(StoreInspectorTests, leavesAFileThatIsNoStoreInPlace) {
  std::filesystem::create_directory(folder);
  std::ofstream(folder / "kv.values.log") << std::string(5000, 'x');
  const auto inspector = inspectStore(folder, StoreKind::keyValues, false);
  EXPECT_FALSE(inspector);
  EXPECT_EQ(std::filesystem::file_size(folder / "kv.values.log"), 5000u);
}

TEST_F(StoreInspectorTests, saysThatTheKeyToTheSecretsIsMissing) {
  secretHost()->write("k", {"1"});
  std::filesystem::remove(folder / "master.key");
  const auto inspector = inspectStore(folder, StoreKind::secrets, false);
  ASSERT_FALSE(inspector);
  EXPECT_THAT(inspector.error(), HasSubstr("holds no key to the secrets"));
}

}  // namespace
}  // namespace kite::test
