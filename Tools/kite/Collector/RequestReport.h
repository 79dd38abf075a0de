#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kite::tool {

inline constexpr std::string_view eventsPath = "/v4/events";
inline constexpr std::string_view healthPath = "/health";

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
  std::size_t bytes = 0;                                     ///< of the body as it came
  std::optional<std::int64_t> unpackedBytes = std::nullopt;  ///< of an accepted upload
  double seconds = 0;                                 ///< since the request was there as a whole
  std::optional<double> storeSeconds = std::nullopt;  ///< of them, in the store, if it was asked
  bool hasStoreFailed = false;
};

/// Whether it asked for the service's health, and got it.
inline bool isHealthCheck(const RequestReport& report) {
  return report.path == healthPath && report.status == 200;
}

/// The report as one JSON object, without a line end.
std::string jsonLine(const RequestReport& report);

}  // namespace kite::tool
