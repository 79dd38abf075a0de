#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace kite::tool {

/// The path and the query of a request, decoded.
struct Target {
  std::string path;
  std::map<std::string, std::string> members;  ///< of equal names the first counts

  /// Empty when there is none.
  std::string member(const std::string& name) const;
};

/// Nothing when an escape is malformed.
std::optional<Target> parseTarget(std::string_view text);

/// The whole decimal number that the text is, zero or more.
std::optional<std::int64_t> wholeNumber(std::string_view text);

/// The query's text without that member, with its "?" unless it is empty.
std::string queryWithout(std::string_view target, std::string_view name);

}  // namespace kite::tool
