#pragma once

#include <cstdint>

namespace kite::test {

/// How often this thread has taken memory by `new`, in this program.
std::uint64_t allocationsOfThisThread();

}  // namespace kite::test
