#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace kite::tool {

/// What became of one request.
struct RequestReport {
  std::string method;
  std::string path;
  int status = 0;  ///< of the answer, 0 when there was none
  std::optional<int> errorCode = std::nullopt;
  std::optional<std::string> message = std::nullopt;
  std::size_t newEvents = 0;
  std::size_t duplicates = 0;
  std::optional<std::string> fault = std::nullopt;
  std::optional<std::int64_t> unpackedBytes = std::nullopt;  ///< of an accepted upload
};

/// The report as one JSON object, without a line end.
std::string jsonLine(const RequestReport& report);

}  // namespace kite::tool
