#pragma once

#include <Kite/DynamicValue.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace kite::PropertyList {

/// A boxed decimal number as archives hold it: (-1)^isNegative * mantissa * 10^exponent.
struct DecimalNumber {
  static constexpr std::size_t maximumLength = 8;

  std::array<std::uint16_t, maximumLength> mantissa{};  ///< the least significant 16 bits first
  std::size_t length = 0;  ///< how many elements of it count; a negative number of none is a NaN
  std::int64_t exponent = 0;
  bool isNegative = false;

  /// An integer where that is its exact value, else the nearest real.
  DynamicValue value() const;

 private:
  std::string digits() const;
};

}  // namespace kite::PropertyList
