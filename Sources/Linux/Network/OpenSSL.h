#pragma once

#include <openssl/crypto.h>

namespace kite::Linux {

/// To be called before any other use of OpenSSL.
///
/// Without it OpenSSL takes itself apart when the process exits, under the hands of threads that
/// still run.
inline void prepareOpenSSL() { OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr); }

}  // namespace kite::Linux
