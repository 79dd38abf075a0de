#pragma once

#include <Kite/Base/Export.h>
#include <Kite/Base/Result.h>

#include <compare>
#include <string>
#include <string_view>

namespace kite {

/// An absolute URL, kept as the text that it was made from (RFC 3986).
class KITE_EXPORT URL {
 public:
  /// Refuses what has no scheme or host, and characters that a URL holds only percent-encoded:
  /// blanks, controls, quotes, backslashes, bytes outside ASCII. The error says which part is
  /// wrong, for instance "its port is not a number up to 65535", and never repeats the text.
  static Result<URL, std::string> parse(std::string_view text);

  const std::string& absoluteString() const { return _text; }
  /// In lower case, for instance "https".
  std::string scheme() const;
  /// Scheme, host and port, for instance "https://events.example:8443": what a diagnostic may show.
  /// User information, path and query may be secret.
  std::string origin() const;

  friend bool operator==(const URL&, const URL&) = default;
  friend auto operator<=>(const URL&, const URL&) = default;

 private:
  explicit URL(std::string text) : _text(std::move(text)) {}
  std::string _text;
};

}  // namespace kite
