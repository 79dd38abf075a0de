#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace kite::Linux {

/// The offset from UTC that holds at some moment.
struct ZoneOffset {
  std::int32_t secondsFromUTC = 0;
  bool isDaylightSavingTime = false;

  friend bool operator==(const ZoneOffset&, const ZoneOffset&) = default;
};

/// A rule for all years, such as "CET-1CEST,M3.5.0,M10.5.0/3": the form of the TZ variable that
/// zone files end with (RFC 9636, 3.3.1).
class PosixTimeZone {
 public:
  static std::optional<PosixTimeZone> parse(std::string_view text);

  ZoneOffset at(std::int64_t secondsSince1970) const;

 private:
  /// A day of every year and a time on it.
  struct Change {
    enum class Form { julianWithoutLeapDay, dayOfYear, weekdayOfMonth };
    Form form;
    int month = 0, week = 0, day = 0;
    std::int32_t seconds = 0;

    /// Local time, in seconds since the beginning of 1970.
    std::int64_t in(int year) const;
  };
  class Parser;

  ZoneOffset _standard;
  ZoneOffset _summer;
  std::optional<Change> _start;
  Change _end{};
};

}  // namespace kite::Linux
