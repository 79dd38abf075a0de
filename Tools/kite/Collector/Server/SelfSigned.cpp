#include "Collector/Server/SelfSigned.h"

#include <fcntl.h>
#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <initializer_list>
#include <memory>
#include <utility>

namespace kite::tool {
namespace {

template <auto release>
struct Release {
  template <class T>
  void operator()(T* object) const {
    release(object);
  }
};
using Key = std::unique_ptr<EVP_PKEY, Release<EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, Release<X509_free>>;
using Extension = std::unique_ptr<X509_EXTENSION, Release<X509_EXTENSION_free>>;
using Text = std::unique_ptr<BIO, Release<BIO_free_all>>;

constexpr long oneDay = 24 * 60 * 60;
constexpr long lifetime = 397 * oneDay;  // some clients refuse longer ones

using Extensions = std::initializer_list<std::pair<int, const char*>>;
constexpr Extensions caExtensions{{NID_basic_constraints, "critical,CA:TRUE,pathlen:0"},
                                  {NID_key_usage, "critical,keyCertSign,cRLSign"},
                                  {NID_subject_key_identifier, "hash"}};
constexpr Extensions serverExtensions{{NID_basic_constraints, "critical,CA:FALSE"},
                                      {NID_key_usage, "critical,digitalSignature"},
                                      {NID_ext_key_usage, "serverAuth"},
                                      {NID_subject_alt_name, "DNS:localhost,IP:127.0.0.1,IP:::1"},
                                      {NID_subject_key_identifier, "hash"},
                                      {NID_authority_key_identifier, "keyid:always"}};

bool setSerial(X509* certificate) {
  std::array<unsigned char, 8> bytes{};
  if (RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1) return false;
  std::uint64_t serial = 0;
  for (const auto byte : bytes) serial = serial << 8 | byte;
  return ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate), serial >> 1 | 1) == 1;
}

bool setSubject(X509* certificate, const char* name) {
  return X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate), "CN", MBSTRING_UTF8,
                                    reinterpret_cast<const unsigned char*>(name), -1, -1, 0) == 1;
}

bool addExtensions(X509* certificate, X509* issuer, Extensions extensions) {
  X509V3_CTX context;
  X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
  for (const auto& [kind, value] : extensions) {
    const Extension extension(X509V3_EXT_conf_nid(nullptr, &context, kind, value));
    if (!extension || X509_add_ext(certificate, extension.get(), -1) != 1) return false;
  }
  return true;
}

struct Identity {
  Certificate certificate;
  Key key;
};

/// A new certificate and key, signed by `issuer` or by itself; without a certificate on failure.
Identity makeIdentity(const char* name, const Identity* issuer, Extensions extensions) {
  Identity made{Certificate(X509_new()), Key(EVP_EC_gen("P-256"))};
  X509* certificate = made.certificate.get();
  X509* signer = issuer ? issuer->certificate.get() : certificate;
  EVP_PKEY* signingKey = issuer ? issuer->key.get() : made.key.get();
  const bool isMade = certificate && made.key && X509_set_version(certificate, X509_VERSION_3) &&
                      setSerial(certificate) && setSubject(certificate, name) &&
                      X509_gmtime_adj(X509_getm_notBefore(certificate), -oneDay) &&
                      X509_gmtime_adj(X509_getm_notAfter(certificate), lifetime - oneDay) &&
                      X509_set_issuer_name(certificate, X509_get_subject_name(signer)) &&
                      X509_set_pubkey(certificate, made.key.get()) &&
                      addExtensions(certificate, signer, extensions) &&
                      X509_sign(certificate, signingKey, EVP_sha256()) > 0;
  if (!isMade) made.certificate.reset();
  return made;
}

/// What `write` puts into a BIO; empty when it fails.
template <class Write>
std::string pemText(Write write) {
  const Text text(BIO_new(BIO_s_mem()));
  if (!text || write(text.get()) != 1) return {};
  char* bytes = nullptr;
  const long size = BIO_get_mem_data(text.get(), &bytes);
  return {bytes, static_cast<std::size_t>(size)};
}

std::string pemOf(const Certificate& certificate) {
  return pemText([&](BIO* text) { return PEM_write_bio_X509(text, certificate.get()); });
}

std::string pemOf(const Key& key) {
  return pemText([&](BIO* text) {
    return PEM_write_bio_PrivateKey(text, key.get(), nullptr, nullptr, 0, nullptr, nullptr);
  });
}

/// Replaces the file whole, so that a reader never sees half of it.
bool write(const std::string& path, const std::string& text, mode_t mode) {
  const std::string fresh = path + ".new";
  ::unlink(fresh.c_str());
  const int file = ::open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
  if (file < 0) return false;
  const ssize_t written = ::write(file, text.data(), text.size());
  const bool isWhole = !text.empty() && std::cmp_equal(written, text.size());
  const bool isClosed = ::close(file) == 0;
  return isWhole && isClosed && std::rename(fresh.c_str(), path.c_str()) == 0;
}

Certificate readCertificate(const std::string& path) {
  const Text file(BIO_new_file(path.c_str(), "r"));
  return Certificate(file ? PEM_read_bio_X509(file.get(), nullptr, nullptr, nullptr) : nullptr);
}

Key readKey(const std::string& path) {
  const Text file(BIO_new_file(path.c_str(), "r"));
  return Key(file ? PEM_read_bio_PrivateKey(file.get(), nullptr, nullptr, nullptr) : nullptr);
}

bool staysValid(const Certificate& certificate) {
  int days = 0;
  int seconds = 0;
  const ASN1_TIME* now = nullptr;
  return ASN1_TIME_diff(&days, &seconds, now, X509_get0_notAfter(certificate.get())) == 1 &&
         days >= 1;
}

}  // namespace

bool isUsable(const SelfSignedFiles& files) {
  const Certificate ca = readCertificate(files.ca);
  const Certificate server = readCertificate(files.certificate);
  const Key key = readKey(files.key);
  return ca && server && key && staysValid(ca) && staysValid(server) &&
         X509_verify(server.get(), X509_get0_pubkey(ca.get())) == 1 &&
         X509_check_private_key(server.get(), key.get()) == 1 &&
         X509_check_host(server.get(), "localhost", 0, 0, nullptr) == 1 &&
         X509_check_ip_asc(server.get(), "127.0.0.1", 0) == 1;
}

bool makeSelfSigned(const SelfSignedFiles& files) {
  const Identity ca = makeIdentity("Kite collector CA", nullptr, caExtensions);
  if (!ca.certificate) return false;
  const Identity server = makeIdentity("localhost", &ca, serverExtensions);
  return server.certificate && write(files.key, pemOf(server.key), 0600) &&
         write(files.certificate, pemOf(server.certificate), 0644) &&
         write(files.ca, pemOf(ca.certificate), 0644);
}

}  // namespace kite::tool
