#pragma once

#include <Kite/KiteManager.h>

#include <memory>

namespace kite {

/// An object of the host's that hands out its facade.
class KiteProvider {
 public:
  virtual ~KiteProvider() = default;
  virtual std::shared_ptr<KiteManager> kite() const = 0;
};

}  // namespace kite
