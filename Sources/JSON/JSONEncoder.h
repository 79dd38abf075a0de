#pragma once

#include <Kite/JSONValue.h>

#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kite {

/// Why a value has no JSON text.
struct EncodingError {
  std::vector<std::string>
      codingPath;  ///< keys, and positions as text, from the outermost down to the bad value
  std::string debugDescription;

  friend bool operator==(const EncodingError&, const EncodingError&) = default;
};

/// The error, if there is one, as it is to whoever stands further out by `path`.
[[nodiscard]] std::optional<EncodingError> within(std::initializer_list<const char*> path,
                                                  std::optional<EncodingError> error);

/// Containers may nest this deep in one encoded document.
inline constexpr int maximumEncodedDepth = 512;

/// Appends the compact JSON text (RFC 8259) of a value. On an error `out` keeps what was written
/// before it.
///
/// A real always has a fraction or an exponent, and the shortest digits that read back as the same
/// number. A date is written as seconds since 2001-01-01T00:00:00Z. Reals that are not finite do
/// not encode, nor does nesting deeper than `maximumEncodedDepth`, counted from
/// `enclosingContainers`.
[[nodiscard]] std::optional<EncodingError> appendJSON(std::string& out, const JSONValue& value,
                                                      int enclosingContainers = 0);
[[nodiscard]] std::optional<EncodingError> appendJSON(std::string& out,
                                                      const JSONValue::Object& members,
                                                      int enclosingContainers = 0);
[[nodiscard]] std::optional<EncodingError> appendJSON(std::string& out, double number);
void appendJSONString(std::string& out, std::string_view text);

}  // namespace kite
