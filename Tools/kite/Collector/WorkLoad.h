#pragma once

#include <cstddef>

namespace kite::tool {

/// How much work may be there before more is turned away.
struct WorkBound {
  std::size_t waiting = 256;             ///< that no thread has begun
  std::size_t bytes = 64 * 1024 * 1024;  ///< of all that is not done
};

/// The work that is there at a moment.
struct WorkLoad {
  std::size_t intakes = 0;
  std::size_t busy = 0;     ///< of the intakes
  std::size_t waiting = 0;  ///< for one of them
  std::size_t bytes = 0;    ///< of all that is not done
};

}  // namespace kite::tool
