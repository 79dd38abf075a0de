#pragma once

#include <Kite/Base/Result.h>

#include "Collector/Server/Certificates.h"

#include <openssl/ssl.h>

#include <memory>
#include <string>

namespace kite::tool {

struct FreeTLSContext {
  void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
};
using TLSContext = std::unique_ptr<SSL_CTX, FreeTLSContext>;

/// A server's context, TLS 1.2 or later. The error is one line.
Result<TLSContext, std::string> makeTLSContext(const CertificateFiles& files);

}  // namespace kite::tool
