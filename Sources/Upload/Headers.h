#pragma once

#include <Kite/Base/Date.h>
#include <Kite/Base/UUID.h>
#include <Kite/Platform/URLSession.h>

#include <memory>
#include <optional>
#include <string>

namespace kite {

struct ComputeHeadersArguments {
  std::optional<HeaderFields> from;  ///< the header fields that the request has already
  std::string clientId;
  bool isTestEnvironment;
  std::string lumoID;
  std::string version;
  URL url;
  std::shared_ptr<const Data> body;
  std::string secret;
  UUID wicketUUID;
  Date now;
};

/// The header fields of an upload: those that the request has, those that say whose it is, and its
/// signature. Later ones replace earlier ones of the same name.
HeaderFields computeHeaders(const ComputeHeadersArguments& arguments);

}  // namespace kite
