#include "Counts/Anywhere/CountedAllocations.h"

#include <cstdlib>
#include <new>

namespace {

thread_local std::uint64_t allocations = 0;
thread_local std::uint64_t releases = 0;
thread_local std::uint64_t failing = 0;  // its number, from 1

bool mayAllocate() { return ++allocations != failing; }

void* orThrow(void* memory) {
  if (!memory) throw std::bad_alloc();
  return memory;
}
void release(void* memory) {
  if (memory) ++releases;
  std::free(memory);
}
std::size_t roundedUp(std::size_t size, std::size_t alignment) {
  return (size + alignment - 1) / alignment * alignment;
}

}  // namespace

std::uint64_t kite::test::allocationsOfThisThread() { return allocations; }
std::uint64_t kite::test::releasesOfThisThread() { return releases; }
void kite::test::failAllocationAfter(std::uint64_t count) { failing = allocations + count + 1; }

// The forms for arrays come down to these, except under a sanitizer, whose own ones stay together.
// Out of line, or gcc takes an allocation for one of malloc's that is given back by delete.
[[gnu::noinline]] void* operator new(std::size_t size) {
  return orThrow(mayAllocate() ? std::malloc(size) : nullptr);
}
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return mayAllocate() ? std::malloc(size) : nullptr;
}
[[gnu::noinline]] void* operator new(std::size_t size, std::align_val_t alignment) {
  const auto least = static_cast<std::size_t>(alignment);
  return orThrow(mayAllocate() ? std::aligned_alloc(least, roundedUp(size, least)) : nullptr);
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { release(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { release(memory); }
[[gnu::noinline]] void operator delete(void* memory, const std::nothrow_t&) noexcept {
  release(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::align_val_t) noexcept { release(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
  release(memory);
}
