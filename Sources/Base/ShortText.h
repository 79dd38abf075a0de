#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace kite {

/// A text that needs no memory of its own while it is short.
class ShortText {
 public:
  static constexpr std::size_t mostInPlace = 39;

  ShortText(std::string_view text = {}) {
    if (text.size() > mostInPlace) {
      _long = std::make_unique<const std::string>(text);
    } else {
      _size = text.copy(_short.data(), text.size());
    }
  }
  ShortText(const char* text) : ShortText(std::string_view(text)) {}
  ShortText(const ShortText& other) : ShortText(other.view()) {}
  ShortText(ShortText&&) = default;
  ShortText& operator=(const ShortText& other) { return *this = ShortText(other); }
  ShortText& operator=(ShortText&&) = default;
  ~ShortText() = default;

  std::string_view view() const {
    return _long ? std::string_view(*_long) : std::string_view(_short.data(), _size);
  }

  friend bool operator==(const ShortText& a, const ShortText& b) { return a.view() == b.view(); }

 private:
  std::unique_ptr<const std::string> _long;
  std::size_t _size = 0;  // of what is in place: a long text that was moved away leaves nothing
  std::array<char, mostInPlace> _short;
};

}  // namespace kite
