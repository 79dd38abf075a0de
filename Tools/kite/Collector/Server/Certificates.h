#pragma once

#include <Kite/Base/Result.h>

#include <string>
#include <variant>

namespace kite::tool {

/// PEM files that exist: a certificate, with its chain behind it if it has one, and its key.
struct CertificateFiles {
  std::string certificate;
  std::string key;
};

/// A folder for a CA and a certificate of localhost, 127.0.0.1 and ::1, made when they are not
/// there or no longer good.
struct SelfSignedFolder {
  std::string path;
};

using CertificateSource = std::variant<CertificateFiles, SelfSignedFolder>;

struct ServerCertificate {
  CertificateFiles files;
  std::string ca;  ///< PEM file that a client must trust; empty when it is not known
};

/// Makes the folder's files where that is asked for. The CA's key is thrown away once it has signed
/// the one certificate. The error is one line.
Result<ServerCertificate, std::string> provideCertificate(const CertificateSource& source);

}  // namespace kite::tool
