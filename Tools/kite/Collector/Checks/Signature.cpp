#include "Collector/Checks/Signature.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <array>

namespace kite::tool {
namespace {

const EVP_MD* digestOf(std::string_view protocol) {
  if (protocol == "Sha512") return EVP_sha512();
  if (protocol == "Sha256") return EVP_sha256();
  return nullptr;
}

void appendHexadecimal(std::string& out, std::string_view bytes) {
  constexpr const char* digits = "0123456789abcdef";
  const std::size_t size = out.size();
  out.resize(size + 2 * bytes.size());
  char* place = out.data() + size;
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    *place++ = digits[value >> 4];
    *place++ = digits[value & 0xF];
  }
}

std::string withPlainScheme(std::string url) {
  constexpr std::string_view secure = "https://";
  for (auto at = url.find(secure); at != std::string::npos; at = url.find(secure, at)) {
    url.replace(at, secure.size(), "http://");
  }
  return url;
}

std::string signedMessage(const SignedParts& parts) {
  std::string message =
      withPlainScheme("https://" + std::string(parts.host) + std::string(parts.target));
  message.reserve(message.size() + 2 * parts.body.size() + 64);
  message += ':';
  appendHexadecimal(message, parts.body);
  message.append(":").append(parts.timestamp);
  message.append(":").append(parts.requestID);
  return message;
}

}  // namespace

std::optional<std::string> signatureOf(const SignedParts& parts, std::string_view protocol,
                                       std::string_view key) {
  return hmacText(signedMessage(parts), protocol, key);
}

std::optional<std::string> hmacText(std::string_view text, std::string_view protocol,
                                    std::string_view key) {
  const EVP_MD* digest = digestOf(protocol);
  if (!digest) return std::nullopt;
  std::array<unsigned char, EVP_MAX_MD_SIZE> code{};
  unsigned int length = 0;
  if (!HMAC(digest, key.data(), static_cast<int>(key.size()),
            reinterpret_cast<const unsigned char*>(text.data()), text.size(), code.data(),
            &length)) {
    return std::nullopt;
  }
  return hexadecimal({reinterpret_cast<const char*>(code.data()), length});
}

std::string hexadecimal(std::string_view bytes) {
  std::string text;
  appendHexadecimal(text, bytes);
  return text;
}

bool isSameSignature(std::string_view one, std::string_view other) {
  return one.size() == other.size() && CRYPTO_memcmp(one.data(), other.data(), one.size()) == 0;
}

}  // namespace kite::tool
