#pragma once

#include <Kite/JSONValue.h>

#include <string>
#include <string_view>

namespace kite::tool {

/// Where an inspector is, and what lets one in.
struct InspectorAddress {
  std::string root;  ///< "http://127.0.0.1:8080"
  std::string token;
};

/// Reads the address that a collector printed. A `token` that is not empty is used instead of the
/// address's own. Throws a `CLI::ValidationError` when it is no such address or there is no token.
InspectorAddress readInspectorAddress(const std::string& url, const std::string& token);

/// Posts the JSON text and gives what is answered. Throws `CommandFailure` when nobody answers in
/// time, or with an error.
JSONValue postJSON(const InspectorAddress& address, std::string_view path, const std::string& json,
                   double seconds);

}  // namespace kite::tool
