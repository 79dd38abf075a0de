#include "Linux/Machine/PosixTimeZone.h"

#include <charconv>
#include <chrono>

namespace kite::Linux {

namespace {

constexpr std::int32_t hour = 3600;
constexpr std::int64_t secondsPerDay = 86400;

bool isDigit(char character) { return character >= '0' && character <= '9'; }
bool isLetter(char character) {
  return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z');
}

std::int64_t daysFrom1970(std::chrono::sys_days date) { return date.time_since_epoch().count(); }

int yearOf(std::int64_t seconds) {
  using namespace std::chrono;
  const auto days = floor<std::chrono::days>(sys_seconds(std::chrono::seconds(seconds)));
  return static_cast<int>(year_month_day(days).year());
}

}  // namespace

/// Reads from the front of the text. Once something is missing, `isSound` stays false.
class PosixTimeZone::Parser {
 public:
  explicit Parser(std::string_view text) : _rest(text) {}

  std::optional<PosixTimeZone> zone() {
    PosixTimeZone zone;
    name();
    zone._standard.secondsFromUTC = -time(24);
    if (_isSound && !_rest.empty()) summer(zone);
    return _isSound && _rest.empty() ? std::optional(zone) : std::nullopt;
  }

 private:
  void summer(PosixTimeZone& zone) {
    name();
    const bool hasOffset = !_rest.starts_with(',');
    zone._summer = {hasOffset ? -time(24) : zone._standard.secondsFromUTC + hour, true};
    require(',');
    zone._start = change();
    require(',');
    zone._end = change();
  }

  Change change() {
    Change change{};
    if (take('M')) {
      change.form = Change::Form::weekdayOfMonth;
      change.month = number(1, 12);
      require('.');
      change.week = number(1, 5);
      require('.');
      change.day = number(0, 6);
    } else if (take('J')) {
      change.form = Change::Form::julianWithoutLeapDay;
      change.day = number(1, 365);
    } else {
      change.form = Change::Form::dayOfYear;
      change.day = number(0, 365);
    }
    change.seconds = take('/') ? time(167) : 2 * hour;
    return change;
  }

  void name() {
    const bool isQuoted = take('<');
    std::size_t length = 0;
    while (length < _rest.size() && (isQuoted ? _rest[length] != '>' : isLetter(_rest[length])))
      ++length;
    _isSound = _isSound && length >= 3;
    _rest.remove_prefix(length);
    if (isQuoted) require('>');
  }

  /// [+-]hh[:mm[:ss]]
  std::int32_t time(int largestHour) {
    const bool isNegative = take('-');
    if (!isNegative) take('+');
    std::int32_t seconds = number(0, largestHour) * hour;
    if (take(':')) seconds += number(0, 59) * 60;
    if (take(':')) seconds += number(0, 59);
    return isNegative ? -seconds : seconds;
  }

  int number(int smallest, int largest) {
    int value = 0;
    std::size_t length = 0;
    while (length < _rest.size() && length < 4 && isDigit(_rest[length])) ++length;
    std::from_chars(_rest.data(), _rest.data() + length, value);
    _isSound = _isSound && length > 0 && value >= smallest && value <= largest;
    _rest.remove_prefix(length);
    return _isSound ? value : smallest;
  }

  bool take(char character) {
    if (!_rest.starts_with(character)) return false;
    _rest.remove_prefix(1);
    return true;
  }
  void require(char character) { _isSound = take(character) && _isSound; }

  std::string_view _rest;
  bool _isSound = true;
};

std::optional<PosixTimeZone> PosixTimeZone::parse(std::string_view text) {
  return Parser(text).zone();
}

std::int64_t PosixTimeZone::Change::in(int ofYear) const {
  using namespace std::chrono;
  const year inYear(ofYear);
  const auto newYear = daysFrom1970(inYear / January / 1);
  auto days = newYear + day;
  if (form == Form::julianWithoutLeapDay) {
    constexpr int lastDayOfFebruary = 59;
    days = newYear + day - (inYear.is_leap() && day > lastDayOfFebruary ? 0 : 1);
  } else if (form == Form::weekdayOfMonth) {
    const auto inMonth = inYear / std::chrono::month(static_cast<unsigned>(month));
    const weekday dayOfWeek(static_cast<unsigned>(day));
    days = week == 5 ? daysFrom1970(inMonth / dayOfWeek[last])
                     : daysFrom1970(inMonth / dayOfWeek[static_cast<unsigned>(week)]);
  }
  return days * secondsPerDay + seconds;
}

ZoneOffset PosixTimeZone::at(std::int64_t seconds) const {
  if (!_start) return _standard;
  const int year = yearOf(seconds + _standard.secondsFromUTC);
  const auto start = _start->in(year)-_standard.secondsFromUTC;
  const auto end = _end.in(year)-_summer.secondsFromUTC;
  const bool isSummer =
      start < end ? seconds >= start && seconds < end : seconds >= start || seconds < end;
  return isSummer ? _summer : _standard;
}

}  // namespace kite::Linux
