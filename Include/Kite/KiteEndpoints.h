#pragma once

#include <Kite/Base/Export.h>
#include <Kite/Base/URL.h>

namespace kite {

/// Where events are sent, by kind of build.
struct KITE_EXPORT KiteEndpoints {
  URL production;
  URL staging;

  /// The collection service's own endpoints.
  static const KiteEndpoints& defaultEndpoints();

  friend bool operator==(const KiteEndpoints&, const KiteEndpoints&) = default;
};

}  // namespace kite
