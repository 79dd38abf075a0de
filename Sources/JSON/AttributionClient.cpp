#include <Kite/AttributionClient.h>

#include <utility>

namespace kite {

AttributionClient AttributionClient::live(std::function<void(Callback)> request) {
  return {std::move(request)};
}

AttributionClient AttributionClient::none() {
  return {[](const Callback& callback) { callback(std::nullopt, std::nullopt); }};
}

}  // namespace kite
