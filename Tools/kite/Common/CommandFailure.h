#pragma once

#include <stdexcept>

namespace kite::tool {

/// Why a command cannot go on, in one line for a person. It ends the process with status 1.
class CommandFailure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace kite::tool
