#pragma once

#include <openssl/crypto.h>

namespace kite::Linux {

/// To be called before any other use of OpenSSL.
///
/// Without it OpenSSL frees its state when the process exits, while threads may still use it.
inline void prepareOpenSSL() { OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr); }

}  // namespace kite::Linux
