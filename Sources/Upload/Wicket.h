#pragma once

#include <Kite/Base/Date.h>
#include <Kite/Base/UUID.h>
#include <Kite/Platform/URLSession.h>

#include <memory>
#include <string>

/// The scheme by which the collection service tells its clients' requests from forged and replayed
/// ones.
namespace kite::Wicket {

/// The hash under the signature.
enum class Protocol { sha512, sha256 };

/// What a signature covers, and the key that it is made with.
struct Arguments {
  URL url;
  std::shared_ptr<const Data> body;  ///< as it is sent; null for none
  Date now;
  UUID requestId;
  std::string secret;
  Protocol wicketProtocol;
};

/// The four "Wicket-…" headers.
HeaderFields computeHeaders(const Arguments& request);

/// The hexadecimal HMAC over URL, body, time and request id. Empty when the secret is not UTF-8.
///
/// The scheme of the URL does not count: every "https://" is signed as "http://". Stops the process
/// when the time in milliseconds does not fit 64 bits.
std::string signature(const Arguments& request);

}  // namespace kite::Wicket
