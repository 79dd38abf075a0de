#pragma once

#include <string>

namespace kite::tool {

/// PEM files of a CA certificate, of the certificate that it signed and of that one's key.
struct SelfSignedFiles {
  std::string ca;
  std::string certificate;
  std::string key;
};

/// Whether the three are there, belong together and stay valid for localhost for another day.
bool isUsable(const SelfSignedFiles& files);

/// Writes new ones over what is there, the key readable by its owner alone; false when that fails.
bool makeSelfSigned(const SelfSignedFiles& files);

}  // namespace kite::tool
