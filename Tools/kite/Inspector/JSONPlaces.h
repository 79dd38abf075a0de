#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace kite::tool {

/// Where each value of a JSON text is: a reader that keeps no values but knows its place.
class JSONPlaces {
 public:
  /// Called with each value's path, such as "events[3].id", and its text; ends the reading by
  /// returning false.
  using Visit = std::function<bool(const std::string& path, std::string_view value)>;

  JSONPlaces(std::string_view text, Visit visit) : _text(text), _visit(std::move(visit)) {}

  /// The place of the first error of the text, or nothing. Visits from the inside out.
  std::optional<std::size_t> read();
  /// The path of the first member whose key its object has already, and where it is.
  const std::optional<std::pair<std::string, std::size_t>>& repeated() const { return _repeated; }

 private:
  struct Stop {};
  struct Error {};

  void value(const std::string& path, int depth);
  void object(const std::string& path, int depth);
  void array(const std::string& path, int depth);
  std::string_view string();
  void scalar();
  void skipBlanks();
  void expect(char letter);
  char peek() const { return _at < _text.size() ? _text[_at] : '\0'; }

  std::string_view _text;
  Visit _visit;
  std::size_t _at = 0;
  std::optional<std::pair<std::string, std::size_t>> _repeated;
};

}  // namespace kite::tool
