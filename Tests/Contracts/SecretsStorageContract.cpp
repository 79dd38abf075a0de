#include <Kite/Linux/LinuxPlatform.h>

#include "Support/FakeSystem.h"
#include "Support/InMemorySecretsStorage.h"
#include "Support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace kite::test {
namespace {

class InMemory {
 public:
  std::shared_ptr<Larder::SecretsStorage> storage() const { return _storage; }
  void restart() { _storage->restart(); }

 private:
  std::shared_ptr<InMemorySecretsStorage> _storage = std::make_shared<InMemorySecretsStorage>();
};

class OnDisk {
 public:
  std::shared_ptr<Larder::SecretsStorage> storage() const { return _storage; }
  void restart() {
    _storage.reset();
    _storage = open();
  }

 private:
  std::shared_ptr<Larder::SecretsStorage> open() const {
    return Linux::sealedSecretsStorage(_folder.path(), _system.system());
  }

  TemporaryFolder _folder;
  FakeSystem _system;
  std::shared_ptr<Larder::SecretsStorage> _storage = open();
};

template <class Setting>
class SecretsStorageContract : public testing::Test {
 protected:
  Larder::SecretsStorage& storage() { return *setting.storage(); }
  std::string textAfterRestart(const char* key) {
    setting.restart();
    const auto value = storage().read(key);
    return value ? value->data().bytes : "absent";
  }

  Setting setting;
};

using Settings = testing::Types<InMemory, OnDisk>;
TYPED_TEST_SUITE(SecretsStorageContract, Settings);

TYPED_TEST(SecretsStorageContract, hasNothingUnderAKeyThatWasNeverWritten) {
  EXPECT_EQ(this->storage().read("k"), nullptr);
}

TYPED_TEST(SecretsStorageContract, hasAnotherRevisionAfterEveryChangeOnly) {
  const auto empty = this->storage().revision();
  this->storage().write("k", {"v"});
  const auto written = this->storage().revision();
  EXPECT_NE(written, empty);
  this->storage().read("k");
  EXPECT_EQ(this->storage().revision(), written);
  this->storage().remove("k");
  EXPECT_NE(this->storage().revision(), written);
}

TYPED_TEST(SecretsStorageContract, keepsAnyBytes) {
  const std::string bytes("\0\xFF\"text\n", 8);
  this->storage().write("k", {bytes});
  EXPECT_EQ(this->storage().read("k")->data().bytes, bytes);
  EXPECT_EQ(this->textAfterRestart("k"), bytes);
}

TYPED_TEST(SecretsStorageContract, keepsAnEmptyValue) {
  this->storage().write("k", {""});
  EXPECT_EQ(this->textAfterRestart("k"), "");
}

TYPED_TEST(SecretsStorageContract, replacesTheValueAtTheNextWrite) {
  this->storage().write("k", {"first"});
  this->storage().write("k", {"second"});
  EXPECT_EQ(this->textAfterRestart("k"), "second");
}

TYPED_TEST(SecretsStorageContract, forgetsARemovedKey) {
  this->storage().write("k", {"1"});
  this->storage().write("other", {"2"});
  this->storage().remove("k");
  EXPECT_EQ(this->storage().read("k"), nullptr);
  EXPECT_EQ(this->textAfterRestart("k"), "absent");
  EXPECT_EQ(this->textAfterRestart("other"), "2");
}

TYPED_TEST(SecretsStorageContract, givesTheSameObjectUntilTheValueChanges) {
  this->storage().write("k", {"1"});
  const auto first = this->storage().read("k");
  EXPECT_EQ(this->storage().read("k"), first);
  this->storage().write("k", {"2"});
  EXPECT_NE(this->storage().read("k"), first);
}

TYPED_TEST(SecretsStorageContract, isAMonitorThatItsOwnerEntersAgain) {
  const std::scoped_lock outer(this->storage());
  const std::scoped_lock inner(this->storage());
  this->storage().write("k", {"1"});
  EXPECT_EQ(this->storage().read("k")->data().bytes, "1");
}

TYPED_TEST(SecretsStorageContract, serialisesReadModifyWritesInTheMonitor) {
  constexpr int threads = 4, rounds = 25;
  this->storage().write("count", {"0"});
  std::vector<std::thread> workers;
  for (int worker = 0; worker < threads; ++worker)
    workers.emplace_back([&storage = this->storage()] {
      for (int i = 0; i < rounds; ++i) {
        const std::scoped_lock guard(storage);
        const int count = std::stoi(storage.read("count")->data().bytes);
        storage.write("count", {std::to_string(count + 1)});
      }
    });
  for (auto& worker : workers) worker.join();
  EXPECT_EQ(this->textAfterRestart("count"), "100");
}

TYPED_TEST(SecretsStorageContract, readsAndWritesDoNotWaitForTheMonitor) {
  const std::scoped_lock guard(this->storage());
  std::thread([&] { this->storage().write("k", {"1"}); }).join();
  EXPECT_EQ(this->storage().read("k")->data().bytes, "1");
}

}  // namespace
}  // namespace kite::test
