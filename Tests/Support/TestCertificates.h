#pragma once

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

namespace kite::test {

/// A certificate and the key that it speaks for.
struct TestIdentity {
  std::shared_ptr<EVP_PKEY> key;
  std::shared_ptr<X509> certificate;
};

/// What a certificate says, besides whose it is. Times are in seconds from now.
struct CertificateTerms {
  std::string alternativeName = "IP:127.0.0.1";  ///< as in `subjectAltName`
  long validFrom = -3600;
  long validUntil = 3600;
};

/// A certificate authority that nobody knows, made for one test.
class TestAuthority {
 public:
  explicit TestAuthority(const char* name = "Test Authority") : _root(newIdentity(name, {})) {
    extend(_root, NID_basic_constraints, "critical,CA:TRUE");
    extend(_root, NID_key_usage, "critical,keyCertSign");
    sign(_root);
  }

  TestIdentity issue(const CertificateTerms& terms = {}) const {
    auto identity = newIdentity("Test Server", terms);
    extend(identity, NID_subject_alt_name, terms.alternativeName);
    X509_set_issuer_name(identity.certificate.get(),
                         X509_get_subject_name(_root.certificate.get()));
    sign(identity);
    return identity;
  }

  std::string pem() const {
    const std::unique_ptr<BIO, decltype(&BIO_free_all)> out(BIO_new(BIO_s_mem()), &BIO_free_all);
    PEM_write_bio_X509(out.get(), _root.certificate.get());
    char* text = nullptr;
    const long size = BIO_get_mem_data(out.get(), &text);
    return std::string(text, static_cast<std::size_t>(size));
  }

 private:
  static TestIdentity newIdentity(const char* name, const CertificateTerms& terms) {
    // Threads that use OpenSSL may outlast the tests; it must not take itself apart at the exit.
    OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
    TestIdentity identity{{EVP_EC_gen("P-256"), &EVP_PKEY_free}, {X509_new(), &X509_free}};
    X509* const certificate = identity.certificate.get();
    static long lastSerial = 0;
    X509_set_version(certificate, X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate), ++lastSerial);
    X509_gmtime_adj(X509_getm_notBefore(certificate), terms.validFrom);
    X509_gmtime_adj(X509_getm_notAfter(certificate), terms.validUntil);
    X509_set_pubkey(certificate, identity.key.get());
    X509_NAME* const subject = X509_get_subject_name(certificate);
    X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>(name), -1, -1, 0);
    X509_set_issuer_name(certificate, subject);
    return identity;
  }

  static void extend(const TestIdentity& identity, int nid, const std::string& value) {
    const std::unique_ptr<X509_EXTENSION, decltype(&X509_EXTENSION_free)> extension(
        X509V3_EXT_conf_nid(nullptr, nullptr, nid, value.c_str()), &X509_EXTENSION_free);
    if (!extension) throw std::invalid_argument("no such extension: " + value);
    X509_add_ext(identity.certificate.get(), extension.get(), -1);
  }

  void sign(const TestIdentity& identity) const {
    X509_sign(identity.certificate.get(), _root.key.get(), EVP_sha256());
  }

  TestIdentity _root;
};

/// An authority's certificate as a file, while this object lives.
class CAFile {
 public:
  explicit CAFile(const TestAuthority& authority) {
    std::string path = std::filesystem::temp_directory_path() / "kite-test-ca-XXXXXX";
    const int descriptor = ::mkstemp(path.data());
    if (descriptor < 0) throw std::runtime_error("cannot make " + path);
    ::close(descriptor);
    std::ofstream(path) << authority.pem();
    _path = path;
  }
  CAFile(const CAFile&) = delete;
  CAFile& operator=(const CAFile&) = delete;
  ~CAFile() { std::filesystem::remove(_path); }

  const std::filesystem::path& path() const { return _path; }

 private:
  std::filesystem::path _path;
};

}  // namespace kite::test
