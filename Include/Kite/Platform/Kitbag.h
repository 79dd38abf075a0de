#pragma once

#include <optional>
#include <string>

namespace kite {

enum class DistributionChannel { debug, testFlight, appStore };

/// What the application's bundle says of it.
struct Kitbag {
  std::optional<std::string> appVersion;
  std::optional<std::string> bundleVersion;
  DistributionChannel distributionChannel = DistributionChannel::debug;

  // Not inlined: gcc 12 would warn the host that versions given in braces may be uninitialized.
  [[gnu::noinline]] ~Kitbag() = default;

  friend bool operator==(const Kitbag&, const Kitbag&) = default;
};

}  // namespace kite
