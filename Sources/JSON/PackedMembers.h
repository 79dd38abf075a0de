#pragma once

#include <Kite/KiteValue.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

/// How `KiteData` keeps its members in one piece of memory: one after the other, each its kind, its
/// name and its value.
namespace kite::PackedMembers {

enum class Kind : char { text, integer, real, no, yes, other };

inline std::size_t packedSize(std::string_view text) {
  std::size_t size = 1 + text.size();
  for (std::size_t rest = text.size(); rest >= 0x80; rest >>= 7) ++size;
  return size;
}
inline std::size_t packedSize(std::int64_t) { return sizeof(std::int64_t); }
inline std::size_t packedSize(double) { return sizeof(double); }
inline std::size_t packedSize(bool) { return 0; }
inline std::size_t packedSize(const KiteValue&) { return 0; }

template <class Value>
std::size_t packedSize(std::string_view name, const Value& value) {
  return 1 + packedSize(name) + packedSize(value);
}

/// Writes where there is room for it, as `packedSize` tells.
class Packing {
 public:
  explicit Packing(char* place) : _place(place) {}

  void add(std::string_view name, std::string_view text) {
    putHead(Kind::text, name);
    putText(text);
  }
  void add(std::string_view name, std::int64_t number) {
    putHead(Kind::integer, name);
    put(&number, sizeof number);
  }
  void add(std::string_view name, double number) {
    putHead(Kind::real, name);
    put(&number, sizeof number);
  }
  void add(std::string_view name, bool flag) { putHead(flag ? Kind::yes : Kind::no, name); }
  void add(std::string_view name, const KiteValue&) { putHead(Kind::other, name); }

 private:
  void putHead(Kind kind, std::string_view name) {
    *_place++ = static_cast<char>(kind);
    putText(name);
  }
  /// The length is written seven bits at a time, the lowest first; all but the last have the eighth
  /// bit set.
  void putText(std::string_view text) {
    std::size_t length = text.size();
    for (; length >= 0x80; length >>= 7) *_place++ = static_cast<char>(length | 0x80);
    *_place++ = static_cast<char>(length);
    if (!text.empty()) put(text.data(), text.size());
  }
  void put(const void* bytes, std::size_t size) {
    std::memcpy(_place, bytes, size);
    _place += size;
  }

  char* _place;
};

template <class Number>
Number numberIn(std::string_view packed) {
  Number result;
  std::memcpy(&result, packed.data(), sizeof result);
  return result;
}

class Unpacking {
 public:
  explicit Unpacking(std::string_view packed) : _rest(packed) {}

  bool isAtEnd() const { return _rest.empty(); }
  Kind kind() { return static_cast<Kind>(byte()); }
  std::string_view text() { return bytes(length()); }
  /// The bytes of a value: of a text itself, of a number its packed form.
  std::string_view value(Kind kind) {
    if (kind == Kind::text) return text();
    const bool isNumber = kind == Kind::integer || kind == Kind::real;
    return bytes(isNumber ? sizeof(std::int64_t) : 0);
  }
  template <class Number>
  Number number() {
    return numberIn<Number>(bytes(sizeof(Number)));
  }

 private:
  std::string_view bytes(std::size_t size) {
    const auto result = _rest.substr(0, size);
    _rest.remove_prefix(size);
    return result;
  }
  std::uint8_t byte() {
    const auto result = static_cast<std::uint8_t>(_rest.front());
    _rest.remove_prefix(1);
    return result;
  }
  std::size_t length() {
    std::size_t result = 0;
    for (unsigned shift = 0;; shift += 7) {
      const std::size_t seven = byte();
      result |= (seven & 0x7F) << shift;
      if (seven < 0x80) return result;
    }
  }

  std::string_view _rest;
};

}  // namespace kite::PackedMembers
