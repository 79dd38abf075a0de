#pragma once

#include <compare>

namespace kite {

/// A point in time, in seconds since 1970-01-01T00:00:00Z, with fraction.
struct Date {
  double secondsSince1970 = 0;

  /// Seconds from 1970-01-01T00:00:00Z to the reference date of stored records,
  /// 2001-01-01T00:00:00Z.
  static constexpr double referenceDate = 978'307'200.0;

  static constexpr Date sinceReferenceDate(double seconds) { return {seconds + referenceDate}; }
  constexpr double secondsSinceReferenceDate() const { return secondsSince1970 - referenceDate; }

  friend constexpr double operator-(Date later, Date earlier) {
    return later.secondsSince1970 - earlier.secondsSince1970;
  }
  friend constexpr Date operator+(Date date, double seconds) {
    return {date.secondsSince1970 + seconds};
  }
  friend constexpr auto operator<=>(Date, Date) = default;
};

}  // namespace kite
