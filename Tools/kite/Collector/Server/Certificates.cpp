#include "Collector/Server/Certificates.h"

#include "Collector/Server/SelfSigned.h"

#include <filesystem>
#include <system_error>

namespace kite::tool {
namespace {

namespace fs = std::filesystem;

Result<ServerCertificate, std::string> provide(const CertificateFiles& files) {
  return ServerCertificate{.files = files, .ca = ""};
}

Result<ServerCertificate, std::string> provide(const SelfSignedFolder& folder) {
  std::error_code error;
  const fs::path path = fs::absolute(folder.path, error);
  fs::create_directories(path, error);
  if (!fs::is_directory(path, error)) return Failure{"cannot make the folder " + folder.path};

  const SelfSignedFiles files{
      .ca = path / "ca.pem", .certificate = path / "server.pem", .key = path / "server.key"};
  if (!isUsable(files) && !makeSelfSigned(files)) {
    return Failure{"cannot write the certificates into " + folder.path};
  }
  return ServerCertificate{.files = {.certificate = files.certificate, .key = files.key},
                           .ca = files.ca};
}

}  // namespace

Result<ServerCertificate, std::string> provideCertificate(const CertificateSource& source) {
  return std::visit([](const auto& each) { return provide(each); }, source);
}

}  // namespace kite::tool
