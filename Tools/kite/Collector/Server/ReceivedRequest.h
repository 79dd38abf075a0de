#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kite::tool {

struct Header {
  std::string name;
  std::string value;
};

/// One HTTP request as it came in, nothing decoded.
struct ReceivedRequest {
  std::string method;
  std::string target;  ///< path and query
  std::vector<Header> headers;
  std::string body;

  std::string_view path() const;
  /// How many headers have that name; names ignore case.
  std::size_t count(std::string_view name) const;
  /// The value of the first header of that name, empty when there is none.
  std::string_view header(std::string_view name) const;
};

}  // namespace kite::tool
