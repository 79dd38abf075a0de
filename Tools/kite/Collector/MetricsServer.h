#pragma once

#include "Collector/Server/HTTPServer.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace kite::tool {

inline constexpr std::string_view metricsPath = "/metrics";

/// Where the metrics are served; port 0 picks one.
struct MetricsAt {
  std::string host = "127.0.0.1";
  std::uint16_t port = 0;
};

/// A server that answers with the text, over plain HTTP and whoever asks. `text` is called on the
/// thread that runs it. The error is one line.
Result<std::unique_ptr<HTTPServer>, std::string> listenForMetrics(
    const MetricsAt& at, std::function<std::string()> text);

}  // namespace kite::tool
