#pragma once

#include <string>

namespace kite {

/// The library's error type. No operation of this release raises it.
struct KiteError {
  enum class Case { invalidMonetizationKey };

  Case kind;
  std::string key;

  friend bool operator==(const KiteError&, const KiteError&) = default;
};

}  // namespace kite
