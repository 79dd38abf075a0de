#pragma once

#include <string>

namespace kite {

/// Raw bytes, as opposed to text.
struct Data {
  std::string bytes;

  friend bool operator==(const Data&, const Data&) = default;
};

}  // namespace kite
