#pragma once

#include <Kite/JSONValue.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <random>
#include <string>

namespace kite::test {

/// Arbitrary JSON values, the same ones for one seed.
class RandomJSON {
 public:
  explicit RandomJSON(std::uint64_t seed) : _random(seed) {}

  std::uint64_t below(std::uint64_t limit) { return _random() % limit; }

  /// Any bytes, seldom UTF-8.
  std::string bytes(std::size_t length) {
    std::string text(length, '\0');
    for (auto& byte : text) byte = static_cast<char>(_random());
    return text;
  }

  /// UTF-8 of all lengths, with everything that needs escaping.
  std::string text() {
    static constexpr const char* parts[] = {
        "a", "key", "/", "\"", "\\", "\n", "\t", "\x01", "\x1F", "\x7F",
        "é", "€",   "𝄞", " ",  "0",  "_",  "{",  "[",    "null", "\xEF\xBF\xBD"};
    std::string text;
    for (auto count = below(12); count > 0; --count) text += parts[below(std::size(parts))];
    return text;
  }

  double finiteReal() {
    switch (below(3)) {
      case 0:
        return static_cast<double>(below(2000)) / 8 - 100;
      case 1:
        return static_cast<double>(below(1000)) - 500;
      default:
        break;
    }
    const auto number = std::bit_cast<double>(_random());
    return std::isfinite(number) ? number : 0.0;
  }

  /// Without dates, which JSON text does not keep apart from numbers.
  JSONValue value(int depth = 4) {
    switch (below(depth > 0 ? 8 : 6)) {
      case 0:
        return text();
      case 1:
        return static_cast<std::int64_t>(_random());
      case 2:
        return static_cast<int>(below(100));
      case 3:
        return finiteReal();
      case 4:
        return below(2) == 0;
      case 5:
        return Null{};
      case 6:
        return object(depth);
      default:
        return array(depth);
    }
  }

  JSONValue::Object object(int depth = 4) {
    JSONValue::Object members;
    for (auto count = below(6); count > 0; --count)
      members.insertOrAssign(text(), value(depth - 1));
    return members;
  }

  JSONValue::Array array(int depth = 4) {
    JSONValue::Array elements;
    for (auto count = below(6); count > 0; --count) elements.push_back(value(depth - 1));
    return elements;
  }

 private:
  std::mt19937_64 _random;
};

}  // namespace kite::test
