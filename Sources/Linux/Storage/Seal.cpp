#include "Linux/Storage/Seal.h"

#include "Linux/Network/OpenSSL.h"

#include <openssl/evp.h>
#include <openssl/rand.h>

#include <algorithm>

namespace kite::Linux {

namespace {

constexpr char format = 1;
constexpr std::size_t nonceSize = 12;
constexpr std::size_t tagSize = 16;
constexpr std::size_t overhead = 1 + nonceSize + tagSize;
constexpr std::size_t largest = std::size_t{1} << 30;

struct FreeContext {
  void operator()(EVP_CIPHER_CTX* context) const { EVP_CIPHER_CTX_free(context); }
};
using Context = std::unique_ptr<EVP_CIPHER_CTX, FreeContext>;

const unsigned char* in(std::string_view bytes) {
  return reinterpret_cast<const unsigned char*>(bytes.data());
}
unsigned char* out(char* bytes) { return reinterpret_cast<unsigned char*>(bytes); }
int sizeOf(std::string_view bytes) { return static_cast<int>(bytes.size()); }

Context makeContext() {
  prepareOpenSSL();
  return Context(EVP_CIPHER_CTX_new());
}

std::string associatedData(std::string_view name) { return format + std::string(name); }

bool fillWithRandomBytes(char* bytes, std::size_t size) {
  prepareOpenSSL();
  return RAND_bytes(out(bytes), static_cast<int>(size)) == 1;
}

}  // namespace

std::shared_ptr<const MasterKey> MasterKey::fromBytes(std::string_view bytes) {
  if (bytes.size() != size) return nullptr;
  std::shared_ptr<MasterKey> key(new MasterKey);
  std::copy(bytes.begin(), bytes.end(), key->_bytes.begin());
  return key;
}

std::shared_ptr<const MasterKey> MasterKey::random() {
  std::shared_ptr<MasterKey> key(new MasterKey);
  return fillWithRandomBytes(key->_bytes.data(), size) ? key : nullptr;
}

MasterKey::~MasterKey() { OPENSSL_cleanse(_bytes.data(), _bytes.size()); }

std::optional<std::string> seal(const MasterKey& key, std::string_view name,
                                std::string_view text) {
  const auto context = makeContext();
  if (!context || text.size() > largest) return std::nullopt;
  const auto associated = associatedData(name);
  std::string sealed(text.size() + overhead, '\0');
  char* nonce = sealed.data() + 1;
  char* body = nonce + nonceSize;
  char* tag = body + text.size();
  sealed.front() = format;
  int written = 0;
  const bool isSealed =
      fillWithRandomBytes(nonce, nonceSize) &&
      EVP_EncryptInit_ex(context.get(), EVP_aes_256_gcm(), nullptr, in(key.bytes()), out(nonce)) &&
      EVP_EncryptUpdate(context.get(), nullptr, &written, in(associated), sizeOf(associated)) &&
      EVP_EncryptUpdate(context.get(), out(body), &written, in(text), sizeOf(text)) &&
      EVP_EncryptFinal_ex(context.get(), out(tag), &written) &&
      EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_GCM_GET_TAG, tagSize, tag);
  return isSealed ? std::optional(std::move(sealed)) : std::nullopt;
}

std::optional<std::string> unseal(const MasterKey& key, std::string_view name,
                                  std::string_view sealed) {
  const auto context = makeContext();
  if (!context || sealed.size() < overhead || sealed.size() > largest || sealed.front() != format)
    return std::nullopt;
  const auto associated = associatedData(name);
  const auto nonce = sealed.substr(1, nonceSize);
  const auto body = sealed.substr(1 + nonceSize, sealed.size() - overhead);
  std::string tag(sealed.substr(sealed.size() - tagSize));
  std::string text(body.size(), '\0');
  int written = 0;
  const bool isGenuine =
      EVP_DecryptInit_ex(context.get(), EVP_aes_256_gcm(), nullptr, in(key.bytes()), in(nonce)) &&
      EVP_DecryptUpdate(context.get(), nullptr, &written, in(associated), sizeOf(associated)) &&
      EVP_DecryptUpdate(context.get(), out(text.data()), &written, in(body), sizeOf(body)) &&
      EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_GCM_SET_TAG, tagSize, tag.data()) &&
      EVP_DecryptFinal_ex(context.get(), out(tag.data()), &written) > 0;
  return isGenuine ? std::optional(std::move(text)) : std::nullopt;
}

}  // namespace kite::Linux
