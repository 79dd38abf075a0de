#include "Collector/Server/TLS.h"

#include <openssl/err.h>

#include <cstring>

namespace kite::tool {
namespace {

/// Why the first call that failed did.
std::string reason() {
  const auto error = ERR_peek_error();
  const char* text = ERR_SYSTEM_ERROR(error) ? std::strerror(ERR_GET_REASON(error))
                                             : ERR_reason_error_string(error);
  return text ? std::string(": ") + text : "";
}

}  // namespace

Result<TLSContext, std::string> makeTLSContext(const CertificateFiles& files) {
  ERR_clear_error();
  TLSContext context(SSL_CTX_new(TLS_server_method()));
  if (!context || SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION) != 1) {
    return Failure<std::string>{"cannot set up TLS"};
  }
  SSL_CTX_set_options(context.get(), SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION);
  if (SSL_CTX_use_certificate_chain_file(context.get(), files.certificate.c_str()) != 1) {
    return Failure{"cannot use the certificate " + files.certificate + reason()};
  }
  if (SSL_CTX_use_PrivateKey_file(context.get(), files.key.c_str(), SSL_FILETYPE_PEM) != 1 ||
      SSL_CTX_check_private_key(context.get()) != 1) {
    return Failure{"cannot use the certificate key " + files.key + reason()};
  }
  return context;
}

}  // namespace kite::tool
