#pragma once

#include <Kite/Base/Export.h>
#include <Kite/DynamicValue.h>

#include <functional>
#include <map>
#include <optional>
#include <string>

namespace kite {

/// Asks the platform which advertisement led to the installation.
struct KITE_EXPORT AttributionClient {
  using Details = std::map<std::string, DynamicValue, std::less<>>;
  /// Called once, from any thread, with the details or with the description of an error.
  using Callback =
      std::function<void(std::optional<Details> details, std::optional<std::string> error)>;

  std::function<void(Callback)> requestAttributionDetails;

  /// The platform's own client: `request` is its one operation.
  static AttributionClient live(std::function<void(Callback)> request);
  /// For platforms without such a service: answers with no details.
  static AttributionClient none();
};

}  // namespace kite
