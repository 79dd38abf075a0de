#pragma once

#include <Kite/Base/Export.h>

#include <compare>
#include <optional>
#include <string>
#include <string_view>

namespace kite {

/// An absolute URL, kept as the text that it was made from (RFC 3986).
class KITE_EXPORT URL {
 public:
  /// Refuses what has no scheme or host, and characters that a URL holds only percent-encoded:
  /// blanks, controls, quotes, backslashes, bytes outside ASCII.
  static std::optional<URL> parse(std::string_view text);

  const std::string& absoluteString() const { return _text; }
  /// In lower case, for instance "https".
  std::string scheme() const;

  friend bool operator==(const URL&, const URL&) = default;
  friend auto operator<=>(const URL&, const URL&) = default;

 private:
  explicit URL(std::string text) : _text(std::move(text)) {}
  std::string _text;
};

}  // namespace kite
