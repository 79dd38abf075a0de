#pragma once

#include <cstdint>

namespace kite::test {

/// Counts how often one number has been turned into text, on any thread, since it was named: as
/// often as what holds it has been encoded.
class CountedNumber {
 public:
  explicit CountedNumber(double number);

  std::uint64_t timesWritten() const;
};

}  // namespace kite::test
