#pragma once

#include <cstdint>

namespace kite::test {

/// How often this thread has taken memory by `new`, in this program.
std::uint64_t allocationsOfThisThread();

/// How often this thread has given such memory back.
std::uint64_t releasesOfThisThread();

/// Lets one allocation by `new` of this thread fail, the first one after `count` others.
void failAllocationAfter(std::uint64_t count);

}  // namespace kite::test
