#pragma once

#include "Collector/Server/ReceivedRequest.h"

#include <optional>
#include <string>
#include <string_view>

namespace kite::tool {

/// What a signature should have been.
struct ExplainedSignature {
  std::string signedText;  ///< shortened
  std::string expected;
  std::optional<std::string> mistake;  ///< the known one that the received signature comes from
};

/// Nothing when the request names no known protocol.
std::optional<ExplainedSignature> explainSignature(const ReceivedRequest& request,
                                                   std::string_view key);

}  // namespace kite::tool
