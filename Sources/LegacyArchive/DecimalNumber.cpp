#include "LegacyArchive/DecimalNumber.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <optional>
#include <system_error>

namespace kite::PropertyList {
namespace {

/// The number that is the whole of `text`, unless it is out of range.
template <class Number>
std::optional<Number> numberFrom(const std::string& text) {
  Number number{};
  const auto* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

}  // namespace

/// The decimal digits of the mantissa, without leading zeros.
std::string DecimalNumber::digits() const {
  auto rest = mantissa;
  const auto isZero = [&] { return std::ranges::count(rest, 0) == std::ssize(rest); };
  std::fill(rest.begin() + static_cast<std::ptrdiff_t>(length), rest.end(), std::uint16_t{0});
  std::string reversed;
  while (!isZero()) {
    std::uint32_t remainder = 0;
    for (auto element = rest.rbegin(); element != rest.rend(); ++element) {
      const std::uint32_t dividend = remainder << 16U | *element;
      *element = static_cast<std::uint16_t>(dividend / 10);
      remainder = dividend % 10;
    }
    reversed += static_cast<char>('0' + remainder);
  }
  return {reversed.rbegin(), reversed.rend()};
}

DynamicValue DecimalNumber::value() const {
  if (length == 0 && isNegative) return std::numeric_limits<double>::quiet_NaN();
  auto significant = digits();
  auto power = exponent;
  for (; significant.ends_with('0'); ++power) significant.pop_back();
  if (significant.empty()) return 0;
  const std::string text = (isNegative ? "-" : "") + significant;
  constexpr std::int64_t digitsOfTheLargestInteger = 19;
  if (power >= 0 && power < digitsOfTheLargestInteger) {
    const std::string zeros(static_cast<std::size_t>(power), '0');
    if (const auto integer = numberFrom<std::int64_t>(text + zeros)) return *integer;
  }
  return numberFrom<double>(text + "e" + std::to_string(power)).value_or(0.0);
}

}  // namespace kite::PropertyList
