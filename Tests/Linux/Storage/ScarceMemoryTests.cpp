#include <Kite/Linux/LinuxPlatform.h>

#include "Base/IfMemoryAllows.h"
#include "Linux/Storage/Database.h"
#include "Support/AppendRows.h"
#include "Support/FakeSystem.h"
#include "Support/TemporaryFolder.h"
#include "Support/TextSegment.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstdlib>
#include <fstream>
#include <new>
#include <optional>
#include <string>
#include <utility>

namespace {

thread_local long allocationsLeft = -1;  // until the one that fails; below 0: none does

bool isTurn() { return allocationsLeft >= 0 && allocationsLeft-- == 0; }

sqlite3_mem_methods plain;

void* allocateForSQLite(int size) { return isTurn() ? nullptr : plain.xMalloc(size); }
void* reallocateForSQLite(void* memory, int size) {
  return isTurn() ? nullptr : plain.xRealloc(memory, size);
}

}  // namespace

[[gnu::noinline]] void* operator new(std::size_t size) {
  if (isTurn()) throw std::bad_alloc();
  if (void* memory = std::malloc(size == 0 ? 1 : size)) return memory;
  throw std::bad_alloc();
}
// Or a sanitizer would have its own, which does not go with this `delete`.
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return isTurn() ? nullptr : std::malloc(size == 0 ? 1 : size);
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace kite::test {
namespace {

constexpr const char* listKey = "a list with a long name";

/// SQLite asks here for its memory as well.
class ScarceMemoryTests : public testing::Test {
 protected:
  ScarceMemoryTests() {
    sqlite3_shutdown();
    sqlite3_config(SQLITE_CONFIG_GETMALLOC, &plain);
    auto scarce = plain;
    scarce.xMalloc = allocateForSQLite;
    scarce.xRealloc = reallocateForSQLite;
    sqlite3_config(SQLITE_CONFIG_MALLOC, &scarce);
    sqlite3_initialize();
  }
  ~ScarceMemoryTests() override {
    sqlite3_shutdown();
    sqlite3_config(SQLITE_CONFIG_MALLOC, &plain);
    sqlite3_initialize();
  }

  /// Runs `body` again and again, each time with an allocation of `scarcely` that fails so many
  /// places later, until none does.
  template <class Body>
  void withAllocationsFailing(long places, Body body) {
    for (_failing = 0, _hasFailed = true; _hasFailed && !HasFailure(); _failing += places) {
      SCOPED_TRACE(_failing);
      body();
    }
    EXPECT_GT(_failing, 10);
  }

  /// What `operation` gives, made a second time when memory ran out.
  template <class Operation>
  auto scarcely(Operation operation) {
    allocationsLeft = _failing;
    auto result = std::optional<decltype(operation())>();
    while (!ifMemoryAllows([&] { result = operation(); })) {
    }
    _hasFailed = std::exchange(allocationsLeft, -1) < 0;
    return *result;
  }

  static std::shared_ptr<Larder::KVStorage> open(const TemporaryFolder& folder,
                                                 FakeSystem& system) {
    return Linux::sqliteKVStorage(folder.path() / "app", system.system());
  }
  static std::string list(const Larder::KVStorage& storage) {
    const auto value = storage.read(listKey);
    return value ? value->data().bytes : "absent";
  }
  static bool append(Larder::KVStorage& storage, std::uint64_t ordinal, std::string text) {
    return appendRows(storage, listKey, {row(ordinal, std::move(text))});
  }

 private:
  long _failing = 0;
  bool _hasFailed = true;
};

TEST_F(ScarceMemoryTests, anEditIsMadeWholeOrNotAtAll) {
  const Larder::ListEdit edit{
      .replacesAll = true, .removed = {}, .appended = {row(0, "0"), row(1, "1"), row(2, "2")}};
  withAllocationsFailing(1, [&] {
    const TemporaryFolder folder;
    FakeSystem system;
    auto storage = open(folder, system);
    ASSERT_TRUE(append(*storage, 0, "0"));
    const auto outcome = scarcely([&] { return storage->edit(listKey, edit); });
    const bool isSaved = outcome == Larder::EditOutcome::saved;
    EXPECT_EQ(list(*storage), isSaved ? "[0,1,2]" : "[0]");
    EXPECT_TRUE(append(*storage, 3, "3"));
    storage = nullptr;
    EXPECT_EQ(list(*open(folder, system)), isSaved ? "[0,1,2,3]" : "[0,3]");
  });
}

TEST_F(ScarceMemoryTests, aValueThatCouldNotBeSavedIsSavedWithTheNext) {
  constexpr const char* key = "a value with a long name";
  withAllocationsFailing(1, [&] {
    const TemporaryFolder folder;
    FakeSystem system;
    auto storage = open(folder, system);
    storage->write(key, {"1"});
    scarcely([&] {
      storage->write(key, {"2"});
      return true;
    });
    EXPECT_EQ(storage->read(key)->data().bytes, "2");
    storage->writeNumber("another", 3);
    storage = nullptr;
    storage = open(folder, system);
    EXPECT_EQ(storage->read(key)->data().bytes, "2");
    EXPECT_EQ(storage->readNumber("another"), 3);
  });
}

TEST_F(ScarceMemoryTests, aDatabaseThatCannotBeOpenedLeavesNothingBehind) {
  const TemporaryFolder folder;
  const auto file = folder.path() / "database";
  std::ofstream(file).close();
  const auto open = [&] {
    return Linux::Database::open(file, Linux::Database::Access::readWrite) != nullptr;
  };
  open();  // which registers what stays
  const auto held = sqlite3_memory_used();
  withAllocationsFailing(1, [&] {
    scarcely(open);
    EXPECT_EQ(sqlite3_memory_used(), held);
  });
}

TEST_F(ScarceMemoryTests, aStoreIsNeverTakenForADamagedOne) {
  withAllocationsFailing(11, [&] {
    const TemporaryFolder folder;
    FakeSystem system;
    ASSERT_TRUE(append(*open(folder, system), 0, "0"));
    scarcely([&] { return open(folder, system) != nullptr; });
    for (const auto& line : system.lines())
      EXPECT_EQ(line.find("damaged"), std::string::npos) << line;
    EXPECT_EQ(list(*open(folder, system)), "[0]");
  });
}

}  // namespace
}  // namespace kite::test
