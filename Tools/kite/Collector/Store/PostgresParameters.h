#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kite::tool {

/// An array in PostgreSQL's binary form, which needs no quoting.
class PostgresArray {
 public:
  enum class Of : std::uint32_t {
    integers = 20,
    texts = 25,
    reals = 701,
    booleans = 16,
    json = 3802
  };

  explicit PostgresArray(Of type) : _type(type) {}

  void add(std::int64_t number);
  void add(double number);
  void add(bool flag);
  /// For texts and JSON. What is not UTF-8 becomes U+FFFD.
  void add(std::string_view text);

  std::string bytes() const;

 private:
  Of _type;
  std::uint32_t _count = 0;
  std::string _elements;
};

/// What a statement is run with, in order.
class PostgresParameters {
 public:
  template <class... Values>
  explicit PostgresParameters(const Values&... values) {
    (add(values), ...);
  }

  std::vector<const char*> values() const;
  std::vector<int> lengths() const;
  std::vector<int> formats() const;

 private:
  struct Value {
    std::optional<std::string> bytes;
    bool isBinary = false;
  };

  void add(std::string_view text);
  void add(const std::string& text) { add(std::string_view(text)); }
  void add(const char* text) { add(std::string_view(text)); }
  void add(std::int64_t number) { _values.push_back({std::to_string(number)}); }
  void add(int number) { add(std::int64_t{number}); }
  void add(bool flag) { _values.push_back({flag ? "t" : "f"}); }
  void add(double number);
  void add(const PostgresArray& array) { _values.push_back({array.bytes(), true}); }
  template <class Value>
  void add(const std::optional<Value>& value) {
    if (value)
      add(*value);
    else
      _values.push_back({std::nullopt});
  }

  std::vector<Value> _values;
};

}  // namespace kite::tool
