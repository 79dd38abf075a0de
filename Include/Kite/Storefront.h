#pragma once

#include <string>

namespace kite {

/// The app store's storefront of the user.
struct Storefront {
  std::string identifier;
  std::string countryCode;

  friend bool operator==(const Storefront&, const Storefront&) = default;
};

}  // namespace kite
