#pragma once

#include <Kite/KiteData.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace kite::fuzz {

/// Makes values out of bytes; once these are used up, all are zero.
class RandomBytes {
 public:
  explicit RandomBytes(std::string_view bytes) : _left(bytes) {}

  bool isAtEnd() const { return _left.empty(); }

  std::uint8_t byte() { return number<std::uint8_t>(); }
  bool flag() { return byte() % 2 == 1; }
  std::size_t below(std::size_t end) { return byte() % end; }
  std::string text() {
    const auto taken = _left.substr(0, below(24));
    _left.remove_prefix(taken.size());
    return std::string(taken);
  }

  KiteValue value(int depth = 3) {
    switch (below(depth > 0 ? 8 : 6)) {
      case 0:
        return text();
      case 1:
        return number<std::int64_t>();
      case 2:
        return real();
      case 3:
        return flag();
      case 4:
        return Date{real()};
      case 5:
        return nullptr;
      case 6:
        return data(depth - 1);
      default:
        return list(depth - 1);
    }
  }

  KiteData data(int depth = 3) {
    KiteData data;
    for (auto left = below(4); left > 0; --left) {
      auto name = text();
      data.set(name, value(depth));
    }
    return data;
  }

 private:
  template <class Number>
  Number number() {
    Number result{};
    const auto taken = std::min(_left.size(), sizeof result);
    std::memcpy(&result, _left.data(), taken);
    _left.remove_prefix(taken);
    return result;
  }
  /// What has no JSON form would keep the whole queue from the disk.
  double real() {
    const auto any = number<double>();
    return std::isfinite(any) ? any : 0;
  }
  std::vector<KiteValue> list(int depth) {
    std::vector<KiteValue> elements;
    for (auto left = below(4); left > 0; --left) elements.push_back(value(depth));
    return elements;
  }

  std::string_view _left;
};

}  // namespace kite::fuzz
