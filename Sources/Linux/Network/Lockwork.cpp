#include <Kite/Platform/Lockwork.h>

#include "Linux/Network/OpenSSL.h"

#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/params.h>

#include <array>
#include <atomic>
#include <cstring>

namespace kite::Lockwork {
namespace {

// Looked up once and kept: the look-up costs more than the code of a short message. One that
// failed, for want of memory, is repeated.
EVP_MAC* hmacImplementation() {
  static std::atomic<EVP_MAC*> known{nullptr};
  if (EVP_MAC* const implementation = known) return implementation;
  Linux::prepareOpenSSL();
  EVP_MAC* const found = EVP_MAC_fetch(nullptr, "HMAC", nullptr);
  EVP_MAC* other = nullptr;
  if (known.compare_exchange_strong(other, found)) return found;
  EVP_MAC_free(found);
  return other;
}

std::string_view digestName(Algorithm algorithm) {
  return algorithm == Algorithm::sha256 ? "SHA256" : "SHA512";
}

constexpr auto digitPairs = [] {
  constexpr std::string_view digits = "0123456789abcdef";
  std::array<char, 512> pairs{};
  for (std::size_t byte = 0; byte < 256; ++byte) {
    pairs[2 * byte] = digits[byte >> 4];
    pairs[2 * byte + 1] = digits[byte & 15];
  }
  return pairs;
}();

}  // namespace

struct HMAC::Context {
  static EVP_MAC_CTX* newContext() {
    EVP_MAC* const implementation = hmacImplementation();
    return implementation ? EVP_MAC_CTX_new(implementation) : nullptr;
  }
  Context(Algorithm algorithm, std::string_view key) : mac(newContext()) {
    std::array<char, 8> digest{};
    digestName(algorithm).copy(digest.data(), digest.size() - 1);
    const std::array<OSSL_PARAM, 2> parameters{
        OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, digest.data(), 0),
        OSSL_PARAM_construct_end()};
    // A null key would mean "the key of before", an empty one is a key like any other.
    const char* const bytes = key.empty() ? "" : key.data();
    isUsable = mac && EVP_MAC_init(mac, reinterpret_cast<const unsigned char*>(bytes), key.size(),
                                   parameters.data());
  }
  Context(const Context&) = delete;
  Context& operator=(const Context&) = delete;
  ~Context() { EVP_MAC_CTX_free(mac); }

  EVP_MAC_CTX* const mac;
  bool isUsable = false;
};

HMAC::HMAC(Algorithm algorithm, std::string_view key)
    : _context(std::make_unique<Context>(algorithm, key)) {}
HMAC::~HMAC() = default;

void HMAC::update(std::string_view piece) {
  if (_context->isUsable)
    _context->isUsable = EVP_MAC_update(
        _context->mac, reinterpret_cast<const unsigned char*>(piece.data()), piece.size());
}

Data HMAC::finish() {
  std::array<unsigned char, EVP_MAX_MD_SIZE> code;
  std::size_t size = 0;
  if (!_context->isUsable || !EVP_MAC_final(_context->mac, code.data(), &size, code.size()))
    return {};
  return {std::string(reinterpret_cast<const char*>(code.data()), size)};
}

std::string hexadecimal(std::string_view bytes) {
  std::string text(2 * bytes.size(), '\0');
  char* out = text.data();
  for (const char byte : bytes) {
    std::memcpy(out, &digitPairs[2 * std::size_t{static_cast<unsigned char>(byte)}], 2);
    out += 2;
  }
  return text;
}

}  // namespace kite::Lockwork
