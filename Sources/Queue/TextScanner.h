#pragma once

#include <cstdint>
#include <string_view>

namespace kite {

/// Finds its way through the text of an event by its layout alone; whether the text is JSON is for
/// a parser to say.
///
/// Each step goes past what it names and is true, or is false and the walk is over.
class TextScanner {
 public:
  explicit TextScanner(std::string_view text) : _text(text) {}

  std::uint32_t position() const { return static_cast<std::uint32_t>(_position); }

  bool skip(std::string_view literal);
  /// A string without escapes that is not empty.
  bool skipPlainString();
  bool skipNumber();
  /// `,"app":…,"user":{"info":{…},"ids":{…}}`
  bool skipUser();

 private:
  bool skipString();
  bool skipObject();

  std::string_view _text;
  std::size_t _position = 0;
};

}  // namespace kite
