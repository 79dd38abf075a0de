#include "Linux/Storage/RecordStore.h"

#include "Linux/Storage/ModelDisk.h"
#include "Support/FakeSystem.h"
#include "Support/Rows.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <semaphore>
#include <string>
#include <thread>

namespace kite::test {
namespace {

using Linux::RecordStore;
using Linux::StoreLogs;
using Linux::ValueKind;
using testing::ElementsAre;
using testing::IsEmpty;

/// Opens a segment only when it is told to.
class HesitantDisk final : public Linux::Disk {
 public:
  explicit HesitantDisk(ModelFolder& folder) : _disk(folder) {}

  std::binary_semaphore hasBegun{0};
  std::binary_semaphore mayGoOn{0};
  bool isHesitant = false;

  std::optional<std::vector<std::string>> names() const override { return _disk.names(); }
  std::unique_ptr<Linux::DiskFile> open(const std::string& name) override {
    if (isHesitant && name == "rows-1.log") {
      isHesitant = false;
      hasBegun.release();
      mayGoOn.acquire();
    }
    return _disk.open(name);
  }
  std::unique_ptr<Linux::DiskFile> make(const std::string& name) override {
    return _disk.make(name);
  }
  bool rename(const std::string& from, const std::string& to) override {
    return _disk.rename(from, to);
  }
  bool remove(const std::string& name) override { return _disk.remove(name); }
  bool sync() override { return _disk.sync(); }
  std::string error() const override { return _disk.error(); }

 private:
  ModelDisk _disk;
};

/// A store with a list, which is being loaded by another thread.
class RecordStoreTests : public testing::Test {
 protected:
  RecordStoreTests() {
    open();
    store->edit("l", {.replacesAll = true, .removed = {}, .appended = {row(1, "1")}},
                Larder::Durability::survivesKill);
    open();
    disk->isHesitant = true;
    _reader = std::thread([this] { loaded = store->readList("l"); });
    disk->hasBegun.acquire();
  }
  void finishLoading() {
    disk->mayGoOn.release();
    _reader.join();
  }
  void open() {
    store.reset();
    auto logs = StoreLogs::own(disk, "store", system.system());
    if (logs)
      store.emplace("somewhere", Linux::keyValueStoreName(), *std::move(logs), nullptr,
                    system.system());
  }
  std::string textOf(std::string_view key) const {
    const auto value = store->find(key);
    return value && value->bytes ? value->bytes->data().bytes : "absent";
  }

  ModelFolder folder;
  std::shared_ptr<HesitantDisk> disk = std::make_shared<HesitantDisk>(folder);
  FakeSystem system;
  std::optional<RecordStore> store;
  std::optional<Larder::SavedList> loaded;

 private:
  std::thread _reader;
};

TEST_F(RecordStoreTests, valuesAreWrittenWhileAListIsLoaded) {
  store->set("k", ValueKind::data, {"meanwhile"});
  EXPECT_EQ(textOf("k"), "meanwhile");
  finishLoading();
  ASSERT_TRUE(loaded);
  EXPECT_THAT(readRows(*loaded), ElementsAre(ReadRow{1, "1"}));
  open();
  EXPECT_EQ(textOf("k"), "meanwhile");
  EXPECT_TRUE(store->readList("l"));
  EXPECT_THAT(system.lines(), IsEmpty());
}

TEST_F(RecordStoreTests, aValueTakesThePlaceOfAListThatIsBeingLoaded) {
  store->set("l", ValueKind::data, {"no list"});
  finishLoading();
  EXPECT_FALSE(loaded);
  for (int round = 0; round < 2; ++round, open()) {
    EXPECT_EQ(textOf("l"), "no list");
    EXPECT_FALSE(store->readList("l"));
  }
}

TEST_F(RecordStoreTests, anEditIsMadeOfAListThatIsBeingLoaded) {
  const auto outcome = store
                           ->edit("l", {.removed = {{1, 2}}, .appended = {row(2, "2")}},
                                  Larder::Durability::survivesKill)
                           .outcome;
  EXPECT_EQ(outcome, Larder::EditOutcome::saved);
  finishLoading();
  ASSERT_TRUE(loaded);
  EXPECT_THAT(readRows(*loaded), ElementsAre(ReadRow{2, "2"}));
  open();
  EXPECT_THAT(readRows(*store->readList("l")), ElementsAre(ReadRow{2, "2"}));
}

}  // namespace
}  // namespace kite::test
