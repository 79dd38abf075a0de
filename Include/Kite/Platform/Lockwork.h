#pragma once

#include <Kite/Base/Data.h>
#include <Kite/Base/Export.h>

#include <memory>
#include <string>
#include <string_view>

/// Cryptography. Implemented by the platform.
namespace kite::Lockwork {

enum class Algorithm { sha256 = 1, sha512 = 3 };

/// A keyed-hash message authentication code (RFC 2104) over a message that is fed in pieces.
class KITE_EXPORT HMAC {
 public:
  HMAC(Algorithm algorithm, std::string_view key);
  ~HMAC();
  HMAC(const HMAC&) = delete;
  HMAC& operator=(const HMAC&) = delete;

  void update(std::string_view piece);
  /// The code, 32 or 64 bytes. Call once, last.
  Data finish();

 private:
  struct Context;
  std::unique_ptr<Context> _context;
};

/// Two lower-case digits per byte, no separators.
KITE_EXPORT std::string hexadecimal(std::string_view bytes);

}  // namespace kite::Lockwork
