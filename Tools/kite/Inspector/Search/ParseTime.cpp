#include "Inspector/Search/ParseTime.h"

#include <array>
#include <charconv>
#include <ctime>
#include <string>

namespace kite::tool {
namespace {

/// Takes exactly `digits` digits off the front.
std::optional<int> takeNumber(std::string_view& text, std::size_t digits) {
  if (text.size() < digits) return std::nullopt;
  int value = 0;
  const auto end = text.data() + digits;
  const auto [rest, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || rest != end || text.front() == '-') return std::nullopt;
  text.remove_prefix(digits);
  return value;
}

bool take(std::string_view& text, char letter) {
  if (text.empty() || text.front() != letter) return false;
  text.remove_prefix(1);
  return true;
}

std::optional<double> relativeTime(std::string_view text, double now) {
  double seconds = 0;
  switch (text.back()) {
    case 's':
      seconds = 1;
      break;
    case 'm':
      seconds = 60;
      break;
    case 'h':
      seconds = 3600;
      break;
    case 'd':
      seconds = 86400;
      break;
    default:
      return std::nullopt;
  }
  double count = 0;
  const auto end = text.data() + text.size() - 1;
  const auto [rest, error] = std::from_chars(text.data() + 1, end, count);
  if (error != std::errc() || rest != end || count < 0) return std::nullopt;
  return now - count * seconds;
}

/// "14:30", "14:30:05" or "14:30:05.25".
bool takeClock(std::string_view& text, std::tm& time, double& fraction) {
  const auto hour = takeNumber(text, 2);
  if (!hour || *hour > 23 || !take(text, ':')) return false;
  const auto minute = takeNumber(text, 2);
  if (!minute || *minute > 59) return false;
  time.tm_hour = *hour;
  time.tm_min = *minute;
  time.tm_sec = 0;
  if (!take(text, ':')) return true;
  const auto second = takeNumber(text, 2);
  if (!second || *second > 60) return false;
  time.tm_sec = *second;
  if (text.empty() || text.front() != '.') return true;
  const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), fraction);
  text.remove_prefix(static_cast<std::size_t>(rest - text.data()));
  return error == std::errc();
}

bool takeDate(std::string_view& text, std::tm& time) {
  const auto year = takeNumber(text, 4);
  if (!year || !take(text, '-')) return false;
  const auto month = takeNumber(text, 2);
  if (!month || *month < 1 || *month > 12 || !take(text, '-')) return false;
  const auto day = takeNumber(text, 2);
  if (!day || *day < 1 || *day > 31) return false;
  time.tm_year = *year - 1900;
  time.tm_mon = *month - 1;
  time.tm_mday = *day;
  return true;
}

/// "Z", "+02:00" or nothing, which is local time.
std::optional<double> inZone(std::string_view text, std::tm time) {
  time.tm_isdst = -1;
  if (text.empty()) return static_cast<double>(std::mktime(&time));
  const auto utc = static_cast<double>(::timegm(&time));
  if (text == "Z") return utc;
  const double sign = text.front() == '-' ? 1 : -1;
  if (text.front() != '+' && text.front() != '-') return std::nullopt;
  text.remove_prefix(1);
  const auto hours = takeNumber(text, 2);
  if (!hours || !take(text, ':')) return std::nullopt;
  const auto minutes = takeNumber(text, 2);
  if (!minutes || !text.empty()) return std::nullopt;
  return utc + sign * (*hours * 3600 + *minutes * 60);
}

}  // namespace

std::optional<double> parseTime(std::string_view text, double now) {
  if (text.empty()) return std::nullopt;
  if (text.front() == '-') return relativeTime(text, now);
  const auto today = static_cast<std::time_t>(now);
  std::tm time{};
  ::localtime_r(&today, &time);
  double fraction = 0;
  if (text.size() > 2 && text[2] == ':') {
    if (!takeClock(text, time, fraction) || !text.empty()) return std::nullopt;
    return *inZone("", time) + fraction;
  }
  if (!takeDate(text, time)) return std::nullopt;
  time.tm_hour = time.tm_min = time.tm_sec = 0;
  if (text.empty()) return inZone("", time);
  if (!take(text, 'T') || !takeClock(text, time, fraction)) return std::nullopt;
  const auto whole = inZone(text, time);
  return whole ? std::optional(*whole + fraction) : std::nullopt;
}

}  // namespace kite::tool
