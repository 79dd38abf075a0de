#include "Collector/MetricsServer.h"

namespace kite::tool {
namespace {

constexpr std::size_t largestMetricsBody = 4096;  // of a request, which needs none
constexpr std::size_t mostScrapers = 16;

Reply plainText(int status, std::string body) {
  return {.status = status,
          .headers = {{"Content-Type", "text/plain; version=0.0.4; charset=utf-8"}},
          .body = std::move(body)};
}

}  // namespace

Result<std::unique_ptr<HTTPServer>, std::string> listenForMetrics(
    const MetricsAt& at, std::function<std::string()> text) {
  return HTTPServer::listen(
      {.host = at.host,
       .port = at.port,
       .certificate = std::nullopt,
       .handle =
           [text = std::move(text)](const ReceivedRequest& request, Exchange& exchange) {
             if (request.path() != metricsPath) {
               return exchange.answer(plainText(404, "there is nothing at this path\n"));
             }
             if (request.method != "GET") {
               return exchange.answer(plainText(405, "this path wants GET\n"));
             }
             exchange.answer(plainText(200, text()));
           },
       .largestBody = largestMetricsBody,
       .mostConnections = mostScrapers});
}

}  // namespace kite::tool
