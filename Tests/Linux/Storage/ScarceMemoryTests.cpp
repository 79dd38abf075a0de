#include "Base/CatchingBadAlloc.h"
#include "Linux/Storage/KVStoreFixture.h"
#include "Support/AppendRows.h"
#include "Support/Rows.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace {

thread_local long allocationsLeft = -1;  // until the one that fails; below 0: none does

bool isTurn() { return allocationsLeft >= 0 && allocationsLeft-- == 0; }

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

using Larder::EditOutcome;
using testing::HasSubstr;
using testing::Not;

class ScarceMemoryTests : public KVStoreFixture {
 protected:
  static constexpr const char* listKey = "a list with a long name";
  static constexpr const char* valueKey = "a value with a long name";

  /// Runs `body` in a new folder again and again, each time with an allocation of `scarcely` that
  /// fails so many places later, until none does.
  template <class Body>
  void withAllocationsFailing(long places, Body body) {
    for (_failing = 0, _hasFailed = true; _hasFailed && !HasFailure(); _failing += places) {
      SCOPED_TRACE(_failing);
      std::filesystem::remove_all(folder);
      system.clearLines();
      body();
    }
    EXPECT_GT(_failing, 5);
  }
  /// What `operation` gives; nothing when memory ran out.
  template <class Operation>
  auto scarcely(Operation operation) {
    auto result = std::optional<decltype(operation())>();
    allocationsLeft = _failing;
    catchingBadAlloc([&] { result = operation(); });
    _hasFailed = std::exchange(allocationsLeft, -1) < 0;
    return result;
  }
  static bool append(const Storage& storage, std::uint64_t ordinal, std::string text) {
    return appendRows(*storage, listKey, {row(ordinal, std::move(text))});
  }

 private:
  long _failing = 0;
  bool _hasFailed = true;
};

TEST_F(ScarceMemoryTests, anEditIsMadeWholeOrNotAtAll) {
  const std::vector<Larder::Row> rows{row(1, "1"), row(2, "2")};
  for (const auto& edit : {Larder::ListEdit{.replacesAll = true, .removed = {}, .appended = rows},
                           Larder::ListEdit{.removed = {{0, 1}}, .appended = rows}}) {
    withAllocationsFailing(1, [&] {
      auto storage = open();
      ASSERT_TRUE(append(storage, 0, "0"));
      const auto outcome = scarcely([&] {
        return storage->edit(listKey, edit, Larder::Durability::survivesPowerCut).outcome;
      });
      const auto found = text(storage, listKey);
      EXPECT_TRUE(found == "[0]" ? outcome != EditOutcome::saved : found == "[1,2]") << found;
      EXPECT_FALSE(outcome == EditOutcome::failed && found != "[0]");
      EXPECT_TRUE(append(storage, 3, "3"));
      const auto later = text(storage, listKey);
      EXPECT_EQ(later, found.substr(0, found.size() - 1) + ",3]");
      storage = nullptr;
      EXPECT_EQ(savedText(listKey), later);
    });
  }
}

TEST_F(ScarceMemoryTests, aValueThatCouldNotBeSavedIsSavedWithTheNext) {
  withAllocationsFailing(1, [&] {
    auto storage = open();
    storage->write(valueKey, {"1"});
    if (!scarcely([&] { return storage->write(valueKey, {"2"}), true; }))
      storage->write(valueKey, {"2"});
    EXPECT_EQ(text(storage, valueKey), "2");
    storage->writeNumber("another", 3);
    storage = nullptr;
    storage = open();
    EXPECT_EQ(text(storage, valueKey), "2");
    EXPECT_EQ(storage->readNumber("another"), 3);
  });
}

TEST_F(ScarceMemoryTests, aStoreIsNeverTakenForADamagedOne) {
  withAllocationsFailing(7, [&] {
    {
      const auto storage = open();
      storage->write(valueKey, {"1"});
      ASSERT_TRUE(append(storage, 0, "0"));
    }
    scarcely([&] { return open(); });
    for (const auto& line : system.lines()) EXPECT_THAT(line, Not(HasSubstr("amaged")));
    const auto storage = open();
    EXPECT_EQ(text(storage, valueKey) + text(storage, listKey), "1[0]");
  });
}

TEST_F(ScarceMemoryTests, aReadListIsWholeOrFails) {
  withAllocationsFailing(1, [&] {
    const auto storage = open();
    for (std::uint64_t i = 0; i < 3; ++i) ASSERT_TRUE(append(storage, i, "text"));
    const auto value = scarcely([&] { return storage->read(listKey); });
    EXPECT_EQ(value ? (*value)->data().bytes : "[text,text,text]", "[text,text,text]");
    EXPECT_EQ(text(storage, listKey), "[text,text,text]");
  });
}

}  // namespace
}  // namespace kite::test
