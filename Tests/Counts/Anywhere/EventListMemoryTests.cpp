#include "Queue/EventList.h"

#include "Counts/Anywhere/CountedAllocations.h"
#include "Events/EventEncoder.h"
#include "Support/Events.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <new>
#include <string>

namespace kite::test {
namespace {

constexpr std::size_t chunk = 512;

EventHandle event(std::size_t number) {
  return EventEncoder().encode(anEvent("E-" + std::to_string(number)));
}

/// Appends with the allocation after `count` others failing; whether it went well.
bool appends(EventList& list, EventHandle appended, std::uint64_t count) {
  failAllocationAfter(count);
  try {
    list.append(std::move(appended));
  } catch (const std::bad_alloc&) {
    return false;
  }
  failAllocationAfter(std::numeric_limits<std::uint64_t>::max() / 2);
  return true;
}

/// How many times an append failed before it went well; the list shows nothing of them.
std::uint64_t failuresOfAppend(EventList& list) {
  const auto before = *list.first(list.size());
  const auto appended = event(list.size());
  std::uint64_t failures = 0;
  while (!appends(list, appended, failures)) {
    ++failures;
    EXPECT_EQ(*list.first(chunk * 3), before);
  }
  auto after = before;
  after.push_back(appended);
  EXPECT_EQ(*list.first(chunk * 3), after);
  return failures;
}

TEST(EventListMemoryTests, anAppendWithoutMemoryLeavesTheListAsItWas) {
  EventList list;
  EXPECT_GE(failuresOfAppend(list), 1U) << "the first chunk";
  for (std::size_t i = 1; i < 2 * chunk; ++i) list.append(event(i));
  EXPECT_GE(failuresOfAppend(list), 3U) << "a chunk and the list of the full ones";
  auto copy = list;
  list.append(event(list.size()));
  EXPECT_GE(failuresOfAppend(copy), 1U) << "a chunk of a copy's own";
}

}  // namespace
}  // namespace kite::test
