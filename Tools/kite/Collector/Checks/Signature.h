#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace kite::tool {

/// What a client signs, each part as it was received.
struct SignedParts {
  std::string_view host;    ///< the Host header
  std::string_view target;  ///< path and query
  std::string_view body;    ///< compressed
  std::string_view timestamp;
  std::string_view requestID;
};

/// The signature that these parts must carry, in lower-case hexadecimal; nothing for an unknown
/// protocol, which is one of "Sha512" and "Sha256".
std::optional<std::string> signatureOf(const SignedParts& parts, std::string_view protocol,
                                       std::string_view key);

/// The keyed hash of a text, in the same form.
std::optional<std::string> hmacText(std::string_view text, std::string_view protocol,
                                    std::string_view key);
/// In lower case.
std::string hexadecimal(std::string_view bytes);

/// Compares in a time that does not tell where the two differ.
bool isSameSignature(std::string_view one, std::string_view other);

}  // namespace kite::tool
