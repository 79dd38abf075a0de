#include "LegacyArchive/ScalarText.h"

#include <charconv>
#include <chrono>
#include <cstdint>

namespace kite::PropertyList {

namespace {

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view blanks = " \t\r\n";
  const auto first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

template <class Number>
std::optional<Number> numberFrom(std::string_view text, auto... base) {
  Number value{};
  const auto* end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, value, base...);
  if (text.empty() || result.ec != std::errc() || result.ptr != end) return std::nullopt;
  return value;
}

std::optional<DynamicValue> integerFromText(std::string_view text) {
  if (text.starts_with('+')) text.remove_prefix(1);
  if (text.starts_with("0x") || text.starts_with("0X")) {
    const auto value = numberFrom<std::uint64_t>(text.substr(2), 16);
    return value ? std::optional<DynamicValue>(*value) : std::nullopt;
  }
  if (const auto value = numberFrom<std::int64_t>(text)) return *value;
  if (const auto value = numberFrom<std::uint64_t>(text)) return *value;
  return std::nullopt;
}

std::optional<DynamicValue> realFromText(std::string_view text) {
  if (text.starts_with('+')) text.remove_prefix(1);
  const auto value = numberFrom<double>(text);
  return value ? std::optional<DynamicValue>(*value) : std::nullopt;
}

// 2001-01-01T00:00:00Z and nothing else.
std::optional<DynamicValue> dateFrom(std::string_view text) {
  constexpr std::string_view form = "dddd-dd-ddTdd:dd:ddZ";
  if (text.size() != form.size()) return std::nullopt;
  for (std::size_t i = 0; i < form.size(); ++i)
    if (form[i] == 'd' ? text[i] < '0' || text[i] > '9' : text[i] != form[i]) return std::nullopt;
  const auto part = [&](std::size_t from, std::size_t size) {
    return numberFrom<int>(text.substr(from, size)).value_or(0);
  };
  using namespace std::chrono;
  const year_month_day day{year(part(0, 4)), month(static_cast<unsigned>(part(5, 2))),
                           std::chrono::day(static_cast<unsigned>(part(8, 2)))};
  if (!day.ok() || part(11, 2) > 23 || part(14, 2) > 59 || part(17, 2) > 60) return std::nullopt;
  const sys_seconds time =
      sys_days(day) + hours(part(11, 2)) + minutes(part(14, 2)) + seconds(part(17, 2));
  return Date{static_cast<double>(time.time_since_epoch().count())};
}

int base64Digit(char character) {
  if (character >= 'A' && character <= 'Z') return character - 'A';
  if (character >= 'a' && character <= 'z') return character - 'a' + 26;
  if (character >= '0' && character <= '9') return character - '0' + 52;
  return character == '+' ? 62 : character == '/' ? 63 : -1;
}

std::optional<DynamicValue> dataFrom(std::string_view text) {
  std::string bytes;
  std::uint32_t bits = 0;
  int count = 0;
  for (const char character : text.substr(0, text.find('='))) {
    if (std::string_view(" \t\r\n").find(character) != std::string_view::npos) continue;
    const auto digit = base64Digit(character);
    if (digit < 0) return std::nullopt;
    bits = bits << 6 | static_cast<std::uint32_t>(digit);
    count += 6;
    if (count < 8) continue;
    count -= 8;
    bytes += static_cast<char>(bits >> count & 0xFF);
  }
  return Data{std::move(bytes)};
}

}  // namespace

std::optional<DynamicValue> scalar(std::string_view element, const std::string& text) {
  if (element == "string") return text;
  if (element == "true" || element == "false") return element == "true";
  if (element == "integer") return integerFromText(trimmed(text));
  if (element == "real") return realFromText(trimmed(text));
  if (element == "date") return dateFrom(trimmed(text));
  if (element == "data") return dataFrom(text);
  return std::nullopt;
}

}  // namespace kite::PropertyList
